// Volume, and the modes of a player.
#include <algorithm>

#include <vantro/player.h>

#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/service_call.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {
namespace {

constexpr int32_t loudest = 100;

Player &player_of(Context &context) {
    return context.partition.player();
}

} // namespace

TaskPtr run_setvol(Context &context, Arguments arguments) {
    checked(player_of(context).set_volume(parse_integer(arguments[0], 0, loudest)));
    return nullptr;
}

TaskPtr run_volume(Context &context, Arguments arguments) {
    const int32_t change = parse_integer(arguments[0], -loudest, loudest);
    const int32_t now = context.partition.status().volume.level;
    checked(player_of(context).set_volume(std::clamp(now + change, 0, loudest)));
    return nullptr;
}

TaskPtr run_getvol(Context &context, Arguments) {
    context.reply.number("volume", context.partition.status().volume.level);
    return nullptr;
}

TaskPtr run_random(Context &context, Arguments arguments) {
    checked(player_of(context).set_shuffle(parse_switch(arguments[0])));
    return nullptr;
}

// The service repeats all or one; in the protocol this is repeat without single, or repeat with
// single.
TaskPtr run_repeat(Context &context, Arguments arguments) {
    const bool on = parse_switch(arguments[0]);
    const int32_t now = context.partition.status().state.repeat;
    if (on != (now != VANTRO_REPEAT_OFF)) {
        checked(player_of(context).set_repeat(on ? Repeat::all : Repeat::off));
    }
    return nullptr;
}

TaskPtr run_single(Context &context, Arguments arguments) {
    if (arguments[0] == "oneshot") {
        throw Ack(AckCode::argument, "single cannot apply to one song only");
    }
    const bool on = parse_switch(arguments[0]);
    const int32_t now = context.partition.status().state.repeat;
    if (on && now == VANTRO_REPEAT_OFF) {
        throw Ack(AckCode::argument, "single needs repeat: the player cannot stop after each song");
    }
    if (on != (now == VANTRO_REPEAT_ONE)) {
        checked(player_of(context).set_repeat(on ? Repeat::one : Repeat::all));
    }
    return nullptr;
}

TaskPtr run_consume(Context &, Arguments arguments) {
    if (arguments[0] == "oneshot" || parse_switch(arguments[0])) {
        throw Ack(AckCode::argument, "the player cannot consume its queue");
    }
    return nullptr;
}

TaskPtr run_crossfade(Context &, Arguments arguments) {
    if (parse_unsigned(arguments[0]) != 0) {
        throw Ack(AckCode::argument, "the player cannot fade from song to song");
    }
    return nullptr;
}

TaskPtr run_replay_gain(Context &, Arguments) {
    throw Ack(AckCode::argument,
              "ReplayGain is an option of the service, which does not report it");
}

} // namespace vantro::mpd
