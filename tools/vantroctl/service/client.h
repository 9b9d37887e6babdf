// The tool's side of the player API: a connection with one player open, a time limit, and the
// errors if a call fails.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_CLIENT_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_CLIENT_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <vantro/player.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/model/player_status.h"

namespace vantro::ctl {

struct ClientOptions {
    std::string player = "main"; // "": none is opened
    double timeout_s = 10;       // For each answer of the service; 0: no limit.
    // How long a service that is not there is waited for; 0: without a limit. Nothing: not at all.
    std::optional<double> wait_s = std::nullopt;
};

// There is no service.
struct NoService : Failure {
    static constexpr const char *words = "no service: is vantrod running?";
    NoService() : Failure(Outcome::absent, words) {}
};

// One thread at a time.
class Client {
  public:
    // Connects and opens the player. @throws Failure.
    explicit Client(const ClientOptions &options);
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // A call of the library that returns 0 on success.
    using Call = std::function<int(VantroHandle *)>;

    // Makes the call. @throws Failure, which names the verb.
    void carry_out(const std::string &verb, const Call &call);

    // Like carry_out(), for what needs a track session: if there is none, that is what fails.
    void carry_out_on_tracks(const std::string &verb, const Call &call);

    // Like carry_out(), but returns why the service refused: 0 if it did not, else an error
    // number or a number of the service's own.
    int32_t ask(const std::string &verb, const Call &call);

    VantroStateInfo state();
    int32_t position();

    // The current track session, if there is one.
    std::optional<SessionStatus> session();
    // The same. @throws Failure if there is none.
    SessionStatus need_session();

    // Nothing if the service has no volume.
    std::optional<Volume> volume();

    std::optional<TrackStatus> track();
    PlayerStatus status();

    // For calls that do not wait for an answer of the service.
    VantroHandle *handle() const { return handle_; }

  private:
    void connect();
    void find_service();
    void wait_for_service();
    [[noreturn]] void explain_no_connection(int error) const;
    [[noreturn]] void fail_late() const;
    void leave();
    PlayerStatus status_in_parts();

    ClientOptions options_;
    int timeout_ms_;
    bool is_late_ = false; // The service has not answered in time.
    VantroHandle *handle_ = nullptr;
};

} // namespace vantro::ctl

#endif
