#include "tools/vantroctl/service/client.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/platform/io.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/service/library_log.h"
#include "tools/vantroctl/service/library_records.h"
#include "tools/vantroctl/service/time_limit.h"
#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

constexpr const char *service_path = "/sys/csm/vantro.sys/default";

constexpr const char *no_session = "no track session: load a node or play first";

// For taking leave of a service that does not answer.
constexpr double leave_s = 0.05;

struct TrackInfoFree {
    void operator()(VantroTrackInfo *info) const { vantro_free_track_info(info); }
};

} // namespace

Client::Client(const ClientOptions &options) : options_(options) {
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
        // Whoever did not answer in time is not waited for once more.
        const TimeLimit limit(TimeLimit::reached() ? leave_s : options_.timeout_s);
        vantro_disconnect(handle_);
        handle_ = nullptr;
    }
}

void Client::connect() {
    {
        const TimeLimit limit(options_.timeout_s);
        forget_heard();
        handle_ = vantro_connect();
        if (!handle_) {
            explain_no_connection(errno);
        }
    }
    const auto open = [this](VantroHandle *handle) {
        return vantro_open(handle, options_.player.c_str());
    };
    if (!ask("opening the player", open)) {
        throw Failure(Outcome::absent,
                      fmt::format("no player \"{}\": is vantrod running with --player {}?",
                                  clean_text(options_.player), clean_text(options_.player)));
    }
}

void Client::explain_no_connection(int error) const {
    fail_if_late();
    // Behind the path's refusal the library looks for a global name, and reports that of the two
    // errors; so the path itself is asked.
    bool denied = error == EACCES;
    const int path = platform_open(service_path, O_RDWR);
    if (path >= 0) {
        platform_close(path);
    } else {
        denied = denied || errno == EACCES;
        fail_if_late();
    }
    if (denied) {
        throw Failure(Outcome::denied, "denied: the service does not admit this user; ask whoever "
                                       "runs it, or see its --perms, --uid and --gid");
    }
    if (error == ENOMEM || error == EMFILE || error == ENFILE) {
        throw Failure(Outcome::failed, fmt::format("cannot connect: {}; free some and try again",
                                                   std::strerror(error)));
    }
    throw Failure(Outcome::absent, no_service);
}

void Client::fail_if_late() const {
    if (TimeLimit::reached()) {
        throw Failure(Outcome::timed_out,
                      fmt::format("timed out: the service does not answer within {} s; is it "
                                  "stuck, or --timeout too short?",
                                  options_.timeout_s));
    }
}

void Client::fail(const std::string &verb) const {
    fail_if_late();
    if (heard().unreachable) {
        const bool too_long = std::strcmp(heard().why, std::strerror(EMSGSIZE)) == 0;
        throw Failure(Outcome::failed,
                      fmt::format("{} failed: {}; {}", verb, heard().why,
                                  too_long ? "ask for less" : "is vantrod still running?"));
    }
    if (!heard().anything) {
        throw Failure(Outcome::failed,
                      fmt::format("{} failed: the service's answer makes no sense; are service and "
                                  "tool of one version?",
                                  verb));
    }
    refused(verb);
}

void Client::refused(const std::string &verb) const {
    throw Failure(
        Outcome::failed,
        fmt::format("{} refused by the player; see what it is doing with vantroctl status", verb));
}

int Client::attempt(const std::function<int(VantroHandle *)> &call) {
    const TimeLimit limit(options_.timeout_s);
    forget_heard();
    return call(handle_);
}

void Client::carry_out(const std::string &verb, const std::function<int(VantroHandle *)> &call) {
    if (attempt(call) != 0) {
        fail(verb);
    }
}

bool Client::ask(const std::string &verb, const std::function<int(VantroHandle *)> &call) {
    if (attempt(call) == 0) {
        return true;
    }
    if (heard().unreachable || !heard().anything || TimeLimit::reached()) {
        fail(verb);
    }
    return false;
}

void Client::carry_out_on_tracks(const std::string &verb,
                                 const std::function<int(VantroHandle *)> &call) {
    if (ask(verb, call)) {
        return;
    }
    if (const auto answer = ask_session(); answer && answer->type == VANTRO_TRKSESSION_NONE) {
        throw Failure(Outcome::not_found,
                      verb == "play" ? "nothing to play: no source has songs; is one still being "
                                       "scanned? vantroctl sources tells"
                                     : no_session);
    }
    refused(verb);
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

std::optional<SessionStatus> Client::ask_session() {
    VantroTrksessionInfo *info = nullptr;
    if (!ask("status", [&](VantroHandle *handle) {
            return vantro_get_current_trksession_info(handle, &info);
        })) {
        return std::nullopt;
    }
    const SessionStatus session{static_cast<int64_t>(info->tsid), info->type, info->length};
    std::free(info);
    return session;
}

std::optional<SessionStatus> Client::session() {
    const std::optional<SessionStatus> answer = ask_session();
    return answer && answer->type != VANTRO_TRKSESSION_NONE ? answer : std::nullopt;
}

SessionStatus Client::need_session() {
    if (const std::optional<SessionStatus> current = session()) {
        return *current;
    }
    throw Failure(Outcome::not_found, no_session);
}

std::optional<TrackStatus> Client::track() {
    VantroTrackInfo *info = nullptr;
    std::unique_ptr<VantroTrackInfo, TrackInfoFree> owner;
    const bool has_track = ask("status", [&](VantroHandle *handle) {
        const int result = vantro_get_current_track_info(handle, &info);
        owner.reset(info); // What was read of a broken answer is there to be freed as well.
        return result;
    });
    return has_track ? std::optional(track_of(info->index, info->media_node, info->metadata))
                     : std::nullopt;
}

PlayerStatus Client::status() {
    PlayerStatus status;
    status.player = options_.player;
    const VantroStateInfo now = state();
    status.state = now.state;
    status.rate = now.rate;
    status.repeat = now.repeat;
    status.shuffle = now.shuffle;
    status.session = session();
    status.track = track();
    if (status.track) {
        ask("status", [&](VantroHandle *handle) {
            return vantro_get_current_track_position(handle, &status.position_ms);
        });
    }
    return status;
}

} // namespace vantro::ctl
