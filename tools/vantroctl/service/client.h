// The tool's side of the player API: a connection with one player open, a time limit, and why
// something failed.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_CLIENT_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_CLIENT_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <vantro/player.h>

#include "tools/vantroctl/output/status_view.h"

namespace vantro::ctl {

struct ClientOptions {
    std::string player = "main";
    double timeout_s = 10; // For each answer of the service; 0: no limit.
};

// One thread at a time.
class Client {
  public:
    // What is said where nobody serves.
    static constexpr const char *no_service = "no service: is vantrod running?";

    // Connects and opens the player. @throws Failure.
    explicit Client(const ClientOptions &options);
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // One call of the library that returns 0 on success. @throws Failure, which names the verb.
    void carry_out(const std::string &verb, const std::function<int(VantroHandle *)> &call);

    // Like carry_out(), for what needs a track session: where there is none, that is what fails.
    void carry_out_on_tracks(const std::string &verb,
                             const std::function<int(VantroHandle *)> &call);

    // Like carry_out(), but false where the service answered and refused.
    bool ask(const std::string &verb, const std::function<int(VantroHandle *)> &call);

    VantroStateInfo state();
    int32_t position();

    // The current track session, if there is one.
    std::optional<SessionStatus> session();
    // The same. @throws Failure where there is none.
    SessionStatus need_session();

    std::optional<TrackStatus> track();
    PlayerStatus status();

    // For the calls that have no answer of the service to wait for.
    VantroHandle *handle() const { return handle_; }

  private:
    std::optional<SessionStatus> ask_session();
    int attempt(const std::function<int(VantroHandle *)> &call);
    void connect();
    [[noreturn]] void explain_no_connection(int error) const;
    [[noreturn]] void refused(const std::string &verb) const;
    [[noreturn]] void fail(const std::string &verb) const;
    void fail_if_late() const;
    void leave();

    ClientOptions options_;
    VantroHandle *handle_ = nullptr;
};

} // namespace vantro::ctl

#endif
