// The tool's side of the player API: a connection with one player open, a time limit, and errors
// for failed calls.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_CLIENT_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_CLIENT_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <vantro/player.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/model/player_status.h"

namespace vantro::ctl {

struct ClientOptions {
    std::string player = "main"; // "": opens no player
    double timeout_s = 10;       // For each answer of the service; 0: no limit.
    // How long to wait until a service runs; 0: without limit. Nothing: do not wait.
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

    // Like carry_out(), for calls that need a track session: if there is none, the failure says so.
    void carry_out_on_tracks(const std::string &verb, const Call &call);

    // Like carry_out(), but returns the reason if the service refuses: an error number or another
    // number of the service; 0 on success.
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

    // The names of the service's players, in its order.
    std::vector<std::string> player_names();

    // For calls that do not wait for an answer of the service.
    VantroHandle *handle() const { return handle_; }

  private:
    void connect();
    [[noreturn]] void explain_no_player();
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
