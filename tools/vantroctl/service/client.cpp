#include "tools/vantroctl/service/client.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <poll.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/platform/io.h>
#include <vantro/platform/message.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/service/arrival.h"
#include "tools/vantroctl/service/library_records.h"
#include "tools/vantroctl/service/refusal.h"
#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

constexpr const char *service_path = "/sys/csm/vantro.sys/default";

constexpr const char *no_session = "no track session: load a node or play first";

// Time limit for disconnecting from a service that does not answer.
constexpr int leave_ms = 50;

// A time limit in the library's form.
int milliseconds(double seconds) {
    constexpr double most = 2e9;
    return seconds <= 0 ? -1 : static_cast<int>(std::clamp(seconds * 1000, 1.0, most));
}

struct TrackInfoFree {
    void operator()(VantroTrackInfo *info) const { vantro_free_track_info(info); }
};

struct StatusFree {
    void operator()(VantroStatus *status) const { vantro_free_status(status); }
};

std::optional<SessionStatus> session_of(const VantroTrksessionInfo &info) {
    if (info.type == VANTRO_TRKSESSION_NONE) {
        return std::nullopt;
    }
    return SessionStatus{static_cast<int64_t>(info.tsid), info.type, info.length};
}

void set_state(PlayerStatus &status, const VantroStateInfo &now) {
    status.state = now.state;
    status.rate = now.rate;
    status.repeat = now.repeat;
    status.shuffle = now.shuffle;
}

} // namespace

Client::Client(const ClientOptions &options)
    : options_(options), timeout_ms_(milliseconds(options.timeout_s)) {
    try {
        connect();
    } catch (...) {
        leave();
        throw;
    }
}

Client::~Client() {
    leave();
}

void Client::leave() {
    if (handle_) {
        // Do not wait again for a service that did not answer in time.
        if (is_late_) {
            vantro_set_timeout(handle_, leave_ms);
        }
        vantro_disconnect(handle_);
        handle_ = nullptr;
    }
}

void Client::find_service() {
    handle_ = vantro_connect_timed(timeout_ms_);
    if (!handle_) {
        explain_no_connection(errno);
    }
}

void Client::wait_for_service() {
    using Clock = std::chrono::steady_clock;
    const double limit_s = *options_.wait_s;
    const auto end = Clock::now() + std::chrono::milliseconds(milliseconds(limit_s));
    Arrival arrival;
    while (!handle_) {
        arrival.prepare();
        try {
            find_service();
        } catch (const NoService &) {
            arrival.failed(true);
            int pause_ms = arrival.pause_ms();
            if (limit_s > 0) {
                const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
                if (left.count() <= 0) {
                    throw Failure(
                        Outcome::absent,
                        fmt::format("no service within {} s: is vantrod running?", limit_s));
                }
                const auto left_ms = static_cast<int>(left.count());
                pause_ms = pause_ms < 0 ? left_ms : std::min(pause_ms, left_ms);
            }
            pollfd appearing = {arrival.descriptor(), POLLIN, 0};
            poll(&appearing, 1, pause_ms);
        }
    }
}

void Client::connect() {
    try {
        find_service();
    } catch (const NoService &) {
        if (!options_.wait_s) {
            throw;
        }
        wait_for_service();
    }
    if (options_.player.empty()) {
        return;
    }
    const std::string verb = "opening the player";
    const int32_t reason = ask(verb, [this](VantroHandle *handle) {
        return vantro_open(handle, options_.player.c_str());
    });
    if (const auto trouble = trouble_of_service(verb, reason)) {
        throw Failure(*trouble);
    }
    if (reason != 0) {
        explain_no_player();
    }
}

void Client::explain_no_player() {
    const std::string player = clean_text(options_.player);
    std::string players;
    try {
        players = clean_text(fmt::format("{}", fmt::join(player_names(), ", ")));
    } catch (const Failure &) {
        // The service does not list its players.
    }
    throw Failure(
        Outcome::absent,
        players.empty()
            ? fmt::format("no player \"{}\": is vantrod running with --player {}?", player, player)
            : fmt::format("no player \"{}\" (players: {}); choose one with --player", player,
                          players));
}

std::vector<std::string> Client::player_names() {
    char **names = nullptr;
    int count = 0;
    const int32_t reason = ask("players", [&](VantroHandle *handle) {
        count = vantro_list_players(handle, &names);
        return count < 0 ? -1 : 0;
    });
    const std::unique_ptr<char *, decltype(&std::free)> owned(names, std::free);
    if (reason != 0) {
        throw refusal("players", reason);
    }
    return {names, names + count};
}

void Client::explain_no_connection(int error) const {
    if (error == ETIMEDOUT) {
        fail_late();
    }
    if (error == EPROTONOSUPPORT) {
        throw Failure(Outcome::failed, "cannot connect: the service and this tool are of different "
                                       "releases; upgrade both, and restart the service");
    }
    // If a path is refused, the library looks for a global name and reports the error of that; so
    // the path is tried here again to learn its error.
    bool denied = error == EACCES;
    const int limit = ipc_set_open_timeout(timeout_ms_);
    const int path = platform_open(service_path, O_RDWR);
    const int path_error = errno;
    ipc_set_open_timeout(limit);
    if (path >= 0) {
        platform_close(path);
    } else if (path_error == ETIMEDOUT) {
        fail_late();
    } else {
        denied = denied || path_error == EACCES;
    }
    if (denied) {
        throw Failure(Outcome::denied, "denied: the service does not admit this user; ask its "
                                       "administrator, or see its --perms, --uid and --gid");
    }
    if (error == ENOMEM || error == EMFILE || error == ENFILE) {
        throw Failure(Outcome::failed, fmt::format("cannot connect: {}; free some and try again",
                                                   std::strerror(error)));
    }
    if (error == EAGAIN) {
        throw Failure(Outcome::failed,
                      "cannot connect: the service has no room for more clients of "
                      "this user; end some and try again");
    }
    throw NoService();
}

void Client::fail_late() const {
    throw Failure(Outcome::timed_out,
                  fmt::format("timed out: the service does not answer within {} s; is it "
                              "stuck, or --timeout too short?",
                              options_.timeout_s));
}

int32_t Client::ask(const std::string &verb, const Call &call) {
    if (call(handle_) == 0) {
        return 0;
    }
    VantroFailure failure;
    switch (vantro_last_failure(&failure)) {
    case VANTRO_FAILURE_REFUSED:
        return failure.number;
    case VANTRO_FAILURE_TIMED_OUT:
        is_late_ = true;
        fail_late();
    case VANTRO_FAILURE_MALFORMED:
        throw Failure(Outcome::failed,
                      fmt::format("{} failed: the service's answer is malformed; are service and "
                                  "tool of the same version?",
                                  verb));
    default:
        throw Failure(Outcome::failed,
                      fmt::format("{} failed: {}; {}", verb, std::strerror(failure.number),
                                  failure.number == EMSGSIZE ? "ask for less"
                                  : failure.number == ENOMEM || failure.number == EMFILE
                                      ? "free some and try again"
                                      : "is vantrod still running?"));
    }
}

void Client::carry_out(const std::string &verb, const Call &call) {
    if (const int32_t reason = ask(verb, call); reason != 0) {
        throw refusal(verb, reason);
    }
}

void Client::carry_out_on_tracks(const std::string &verb, const Call &call) {
    const int32_t reason = ask(verb, call);
    if (reason == ENODATA) {
        throw Failure(Outcome::not_found, no_session);
    }
    if (reason != 0) {
        throw refusal(verb, reason);
    }
}

VantroStateInfo Client::state() {
    VantroStateInfo *info = nullptr;
    carry_out("status",
              [&](VantroHandle *handle) { return vantro_get_current_state(handle, &info); });
    const VantroStateInfo result = *info;
    std::free(info);
    return result;
}

int32_t Client::position() {
    int32_t position_ms = 0;
    carry_out_on_tracks("position", [&](VantroHandle *handle) {
        return vantro_get_current_track_position(handle, &position_ms);
    });
    return position_ms;
}

std::optional<SessionStatus> Client::session() {
    VantroTrksessionInfo *info = nullptr;
    carry_out("status", [&](VantroHandle *handle) {
        return vantro_get_current_trksession_info(handle, &info);
    });
    const std::optional<SessionStatus> session = session_of(*info);
    std::free(info);
    return session;
}

SessionStatus Client::need_session() {
    if (const std::optional<SessionStatus> current = session()) {
        return *current;
    }
    throw Failure(Outcome::not_found, no_session);
}

std::optional<Volume> Client::volume() {
    VantroVolume volume = {};
    const int32_t reason =
        ask("volume", [&](VantroHandle *handle) { return vantro_get_volume(handle, &volume); });
    if (reason != 0 && reason != ENOSYS) {
        throw refusal("volume", reason);
    }
    return reason == 0 ? std::optional(Volume{volume.level, volume.muted != 0}) : std::nullopt;
}

std::optional<TrackStatus> Client::track() {
    VantroTrackInfo *info = nullptr;
    std::unique_ptr<VantroTrackInfo, TrackInfoFree> owner;
    const int32_t reason = ask("status", [&](VantroHandle *handle) {
        info = nullptr;
        const int result = vantro_get_current_track_info(handle, &info);
        owner.reset(info); // After a malformed answer, the part that was read must be freed.
        return result;
    });
    if (const auto trouble = trouble_of_service("status", reason)) {
        throw Failure(*trouble);
    }
    return reason == 0 ? std::optional(track_of(info->index, info->media_node, info->metadata))
                       : std::nullopt;
}

PlayerStatus Client::status() {
    VantroStatus *whole = nullptr;
    const int32_t reason =
        ask("status", [&](VantroHandle *handle) { return vantro_get_status(handle, &whole); });
    if (reason == ENOSYS) {
        return status_in_parts();
    }
    if (reason != 0) {
        throw refusal("status", reason);
    }
    const std::unique_ptr<VantroStatus, StatusFree> owner(whole);
    PlayerStatus status;
    status.player = options_.player;
    set_state(status, whole->state);
    status.volume = Volume{whole->volume.level, whole->volume.muted != 0};
    status.session = session_of(whole->trksession);
    if (status.session) {
        status.track = track_of(whole->index, whole->media_node, whole->metadata);
        status.position_ms = whole->position;
    }
    return status;
}

// For a service that does not offer the whole status in one query.
PlayerStatus Client::status_in_parts() {
    PlayerStatus status;
    status.player = options_.player;
    set_state(status, state());
    status.volume = volume();
    status.session = session();
    status.track = status.session ? track() : std::nullopt;
    if (status.track) {
        // A session that has ended meanwhile leaves the position at 0.
        ask("status", [&](VantroHandle *handle) {
            return vantro_get_current_track_position(handle, &status.position_ms);
        });
    }
    return status;
}

} // namespace vantro::ctl
