// Playing, and moving within the queue and the track.
#include <algorithm>
#include <chrono>
#include <optional>

#include <vantro/player.h>

#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/commands/queue_edit.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/service_call.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {
namespace {

Player &player_of(Context &context) {
    return context.partition.player();
}

int32_t state_of(Context &context) {
    return context.partition.status().state.state;
}

void play(Context &context, std::optional<uint32_t> position) {
    if (position) {
        checked(player_of(context).jump(static_cast<int32_t>(*position)));
    }
    checked(player_of(context).play());
    context.partition.clear_error();
}

void seek(Context &context, uint32_t position, std::string_view time) {
    const int32_t ms = std::max(parse_milliseconds(time), 0);
    Player &player = player_of(context);
    if (context.partition.current() != static_cast<int32_t>(position)) {
        checked(player.jump(static_cast<int32_t>(position)));
    }
    const int32_t state = state_of(context);
    checked(player.seek(std::chrono::milliseconds(ms)));
    if (state != VANTRO_STATE_PLAYING && state != VANTRO_STATE_PAUSED) {
        checked(player.play());
    }
}

} // namespace

TaskPtr run_play(Context &context, Arguments arguments) {
    const bool given = !arguments.empty() && arguments[0] != "-1";
    play(context,
         given ? std::optional(checked_position(context.partition.queue().size(), arguments[0]))
               : std::nullopt);
    return nullptr;
}

TaskPtr run_playid(Context &context, Arguments arguments) {
    const bool given = !arguments.empty() && arguments[0] != "-1";
    play(context, given ? std::optional(position_of(context.partition.queue(), arguments[0]))
                        : std::nullopt);
    return nullptr;
}

TaskPtr run_pause(Context &context, Arguments arguments) {
    const int32_t state = state_of(context);
    const bool pause =
        arguments.empty() ? state == VANTRO_STATE_PLAYING : parse_switch(arguments[0]);
    if (pause) {
        checked(player_of(context).pause());
    } else if (state == VANTRO_STATE_PAUSED) {
        checked(player_of(context).play());
    }
    return nullptr;
}

TaskPtr run_stop(Context &context, Arguments) {
    checked(player_of(context).stop());
    return nullptr;
}

TaskPtr run_next(Context &context, Arguments) {
    checked(player_of(context).next());
    return nullptr;
}

TaskPtr run_previous(Context &context, Arguments) {
    checked(player_of(context).previous());
    return nullptr;
}

TaskPtr run_seek(Context &context, Arguments arguments) {
    seek(context, checked_position(context.partition.queue().size(), arguments[0]), arguments[1]);
    return nullptr;
}

TaskPtr run_seekid(Context &context, Arguments arguments) {
    seek(context, position_of(context.partition.queue(), arguments[0]), arguments[1]);
    return nullptr;
}

TaskPtr run_seekcur(Context &context, Arguments arguments) {
    std::string_view time = arguments[0];
    const bool relative = time.starts_with('+') || time.starts_with('-');
    const bool back = time.starts_with('-');
    time.remove_prefix(relative ? 1 : 0);
    int64_t ms = parse_milliseconds(time);
    if (relative) {
        const int64_t now = checked(player_of(context).position()).count();
        ms = std::clamp<int64_t>(back ? now - ms : now + ms, 0, INT32_MAX);
    }
    checked(player_of(context).seek(std::chrono::milliseconds(ms)));
    return nullptr;
}

} // namespace vantro::mpd
