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
#include <vantro/protocol.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/service/library_log.h"
#include "tools/vantroctl/service/library_records.h"
#include "tools/vantroctl/service/refusal.h"
#include "tools/vantroctl/service/time_limit.h"
#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

constexpr const char *service_path = "/sys/csm/vantro.sys/default";

constexpr const char *no_session = "no track session: load a node or play first";

// Time limit for disconnecting from a service that does not answer.
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
        // A service that has not answered in time is not waited for again.
        const TimeLimit limit(TimeLimit::reached() ? leave_s : options_.timeout_s);
        vantro_disconnect(handle_);
        handle_ = nullptr;
    }
}

void Client::connect() {
    {
        const TimeLimit limit(options_.timeout_s);
        forget_logged_failure();
        handle_ = vantro_connect();
        if (!handle_) {
            explain_no_connection(errno);
        }
    }
    const std::string verb = "opening the player";
    const int32_t reason =
        ask(verb, ServiceRequest(VANTRO_COMMAND_OPEN).text(options_.player),
            [this](VantroHandle *handle) { return vantro_open(handle, options_.player.c_str()); });
    if (const auto trouble = trouble_of_service(verb, reason)) {
        throw Failure(*trouble);
    }
    if (reason != 0) {
        throw Failure(Outcome::absent,
                      fmt::format("no player \"{}\": is vantrod running with --player {}?",
                                  clean_text(options_.player), clean_text(options_.player)));
    }
}

void Client::explain_no_connection(int error) const {
    fail_if_late();
    // After a refused path the library looks for a global name and reports the error of that; so
    // the path is tried here to learn its own error.
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
    if (error == EAGAIN) {
        throw Failure(Outcome::failed,
                      "cannot connect: the service has no room for more clients of "
                      "this user; end some and try again");
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
    const LoggedFailure &failure = logged_failure();
    if (!failure.in_exchange) {
        throw Failure(Outcome::failed,
                      fmt::format("{} failed: the service's answer makes no sense; are service and "
                                  "tool of one version?",
                                  verb));
    }
    const auto is = [&](int error) { return std::strcmp(failure.why, std::strerror(error)) == 0; };
    throw Failure(Outcome::failed,
                  fmt::format("{} failed: {}; {}", verb, failure.why,
                              is(EMSGSIZE)               ? "ask for less"
                              : is(ENOMEM) || is(EMFILE) ? "free some and try again"
                                                         : "is vantrod still running?"));
}

int Client::attempt(const Call &call) {
    const TimeLimit limit(options_.timeout_s);
    forget_logged_failure();
    return call(handle_);
}

int32_t Client::reason_of(const ServiceRequest &request) const {
    const TimeLimit limit(options_.timeout_s);
    const int32_t reason = ask_reason(options_.player, request);
    fail_if_late();
    return reason;
}

int32_t Client::ask(const std::string &verb, const ServiceRequest &request, const Call &call) {
    const auto answered = [&] {
        if (attempt(call) == 0) {
            return true;
        }
        if (logged_failure().in_exchange || !logged_failure().anything || TimeLimit::reached()) {
            fail(verb);
        }
        return false;
    };
    if (answered()) {
        return 0;
    }
    const int32_t reason = reason_of(request);
    if (reason == 0 && request.is_query()) { // The second time it was answered: get the answer.
        return answered() ? 0 : EAGAIN;
    }
    return reason;
}

void Client::carry_out(const std::string &verb, const ServiceRequest &request, const Call &call) {
    if (const int32_t reason = ask(verb, request, call); reason != 0) {
        throw refusal(verb, reason);
    }
}

void Client::carry_out_on_tracks(const std::string &verb, const ServiceRequest &request,
                                 const Call &call) {
    const int32_t reason = ask(verb, request, call);
    if (reason == ENODATA) {
        throw Failure(Outcome::not_found, no_session);
    }
    if (reason != 0) {
        throw refusal(verb, reason);
    }
}

VantroStateInfo Client::state() {
    VantroStateInfo *info = nullptr;
    carry_out("status", ServiceRequest(VANTRO_COMMAND_GET_CURRENT_STATE),
              [&](VantroHandle *handle) { return vantro_get_current_state(handle, &info); });
    const VantroStateInfo result = *info;
    std::free(info);
    return result;
}

int32_t Client::position() {
    int32_t position_ms = 0;
    carry_out_on_tracks("position", ServiceRequest(VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION),
                        [&](VantroHandle *handle) {
                            return vantro_get_current_track_position(handle, &position_ms);
                        });
    return position_ms;
}

std::optional<SessionStatus> Client::session() {
    VantroTrksessionInfo *info = nullptr;
    carry_out(
        "status", ServiceRequest(VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO),
        [&](VantroHandle *handle) { return vantro_get_current_trksession_info(handle, &info); });
    const SessionStatus session{static_cast<int64_t>(info->tsid), info->type, info->length};
    std::free(info);
    return session.type != VANTRO_TRKSESSION_NONE ? std::optional(session) : std::nullopt;
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
    const int32_t reason = ask(
        "status", ServiceRequest(VANTRO_COMMAND_GET_CURRENT_TRACK_INFO), [&](VantroHandle *handle) {
            info = nullptr;
            const int result = vantro_get_current_track_info(handle, &info);
            owner.reset(info); // A broken answer leaves what was read of it, to be freed.
            return result;
        });
    if (const auto trouble = trouble_of_service("status", reason)) {
        throw Failure(*trouble);
    }
    return reason == 0 ? std::optional(track_of(info->index, info->media_node, info->metadata))
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
    status.track = status.session ? track() : std::nullopt;
    if (status.track) {
        // A session that has ended meanwhile leaves the position at 0.
        ask("status", ServiceRequest(VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION),
            [&](VantroHandle *handle) {
                return vantro_get_current_track_position(handle, &status.position_ms);
            });
    }
    return status;
}

} // namespace vantro::ctl
