#include "tools/vantroctl/verbs/commands.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/extras.h>
#include <vantro/player.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/output/status_view.h"
#include "tools/vantroctl/service/catalogue_queries.h"
#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/service/refusal.h"
#include "tools/vantroctl/text/time_text.h"
#include "tools/vantroctl/verbs/listings.h"
#include "tools/vantroctl/verbs/play_watch.h"

namespace vantro::ctl {
namespace {

struct PlainCommand {
    std::string_view verb;
    int (*function)(VantroHandle *);
};

constexpr PlainCommand plain_commands[] = {
    {"pause", vantro_pause},
    {"stop", vantro_stop},
    {"next", vantro_next},
    {"previous", vantro_previous},
};

// The command line has checked most arguments; this reports the others.
template <class T>
T required(const std::optional<T> &value, const std::string &text) {
    if (!value) {
        throw Failure(Outcome::usage, "not understood: " + text);
    }
    return *value;
}

} // namespace

std::optional<float> parse_rate(std::string_view text) {
    float rate = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), rate);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(rate)) {
        return std::nullopt;
    }
    return rate;
}

std::optional<int32_t> parse_repeat(std::string_view text) {
    for (const int32_t mode : {VANTRO_REPEAT_OFF, VANTRO_REPEAT_ALL, VANTRO_REPEAT_ONE}) {
        if (text == repeat_name(mode)) {
            return mode;
        }
    }
    return std::nullopt;
}

CommandResult run_plain(Client &client, const std::string &verb) {
    const bool toggles = verb == "toggle";
    if (verb == "play" || (toggles && client.state().state != VANTRO_STATE_PLAYING)) {
        PlayWatch watch(client);
        play(client);
        watch.await();
        return {.command = verb};
    }
    for (const PlainCommand &command : plain_commands) {
        if (command.verb == (toggles ? "pause" : verb)) {
            client.carry_out_on_tracks(verb, command.function);
            return {.command = verb};
        }
    }
    throw Failure(Outcome::usage, "not understood: " + verb);
}

void tell_track(Client &client, CommandResult &result) {
    result.track = client.track();
    result.tracks = client.session();
}

CommandResult run_seek(Client &client, const std::string &text) {
    int32_t position_ms = 0;
    if (const std::optional<PercentTarget> part = parse_percent(text)) {
        const std::optional<TrackStatus> track = client.track();
        if (!track || track->duration_ms <= 0) {
            throw Failure(Outcome::not_found, "the player has no track, or its length is unknown");
        }
        position_ms = part->from(part->relative ? client.position() : 0, track->duration_ms);
    } else {
        const SeekTarget target = required(parse_seek(text), text);
        position_ms = target.from(target.relative ? client.position() : 0);
    }
    client.carry_out_on_tracks(
        "seek", [=](VantroHandle *handle) { return vantro_seek(handle, position_ms); });
    return {.command = "seek", .position_ms = position_ms};
}

CommandResult run_rate(Client &client, const std::string &text) {
    const float rate = required(parse_rate(text), text);
    const int32_t reason = client.ask(
        "rate", [=](VantroHandle *handle) { return vantro_set_playback_rate(handle, rate); });
    if (reason == ERANGE) {
        throw Failure(Outcome::failed,
                      fmt::format("the player cannot play at rate {}", rate_text(rate)));
    }
    if (reason != 0) {
        throw refusal("rate", reason);
    }
    return {.command = "rate", .rate = rate};
}

std::optional<VolumeChange> parse_volume(std::string_view text) {
    VolumeChange change;
    if (text == "mute" || text == "unmute") {
        change.muted = text == "mute";
        return change;
    }
    change.relative = text.starts_with('+') || text.starts_with('-');
    const std::string_view digits = text.substr(change.relative ? 1 : 0);
    const char *const digits_end = digits.data() + digits.size();
    const auto [end, error] = std::from_chars(digits.data(), digits_end, change.level);
    if (error != std::errc() || end != digits_end || change.level < 0 || change.level > 100) {
        return std::nullopt;
    }
    change.level = text.starts_with('-') ? -change.level : change.level;
    return change;
}

CommandResult run_volume(Client &client, const std::string &text) {
    std::optional<Volume> volume = client.volume();
    if (!volume) {
        throw refusal("volume", ENOSYS);
    }
    if (!text.empty()) {
        const VolumeChange change = required(parse_volume(text), text);
        client.carry_out("volume", [&](VantroHandle *handle) {
            if (change.muted) {
                return vantro_set_muted(handle, *change.muted ? 1 : 0);
            }
            const int32_t level = change.level + (change.relative ? volume->level : 0);
            return vantro_set_volume(handle, std::clamp(level, 0, 100));
        });
        volume = client.volume().value_or(*volume); // the service may have set less
    }
    return {.command = "volume", .volume = volume->level, .muted = volume->muted};
}

CommandResult run_shuffle(Client &client, const std::string &text) {
    if (text.empty()) {
        return {.command = "shuffle", .shuffle = client.state().shuffle != VANTRO_SHUFFLE_OFF};
    }
    const bool on = text == "toggle" ? client.state().shuffle == VANTRO_SHUFFLE_OFF : text == "on";
    const int32_t mode = on ? VANTRO_SHUFFLE_ON : VANTRO_SHUFFLE_OFF;
    client.carry_out("shuffle", [=](VantroHandle *handle) { return vantro_shuffle(handle, mode); });
    return {.command = "shuffle", .shuffle = on};
}

CommandResult run_repeat(Client &client, const std::string &text) {
    if (text.empty()) {
        return {.command = "repeat", .repeat = client.state().repeat};
    }
    const int32_t mode = text != "toggle" ? required(parse_repeat(text), text)
                         : client.state().repeat == VANTRO_REPEAT_OFF ? VANTRO_REPEAT_ALL
                                                                      : VANTRO_REPEAT_OFF;
    client.carry_out("repeat", [=](VantroHandle *handle) { return vantro_repeat(handle, mode); });
    return {.command = "repeat", .repeat = mode};
}

CommandResult run_rescan(Client &client, const ListOptions &options,
                         const std::optional<std::string> &node) {
    if (node) {
        rescan_place(client, place_of(client, options, *node));
    } else if (options.source) {
        rescan_place(client, {*options.source, VANTRO_NODE_ROOT});
    } else {
        client.carry_out("rescan", vantro_rescan);
    }
    return {.command = "rescan"};
}

} // namespace vantro::ctl
