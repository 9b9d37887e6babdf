// The verbs that change what a player does.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_COMMANDS_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/vantroctl/model/command_result.h"

namespace vantro::ctl {

class Client;

// A finite number and nothing else, whatever the locale is.
std::optional<float> parse_rate(std::string_view text);

// The number of a repeat mode's name, or nothing.
std::optional<int32_t> parse_repeat(std::string_view text);

// A command without argument: play, pause, toggle, stop, next, previous.
CommandResult run_plain(Client &client, const std::string &verb);

// Adds what plays now to a result.
void tell_track(Client &client, CommandResult &result);

// @param text as parse_seek() or parse_percent() reads it.
CommandResult run_seek(Client &client, const std::string &text);

// @param text as parse_rate() reads it.
CommandResult run_rate(Client &client, const std::string &text);

// "40", "+5", "-5", "mute" or "unmute".
struct VolumeChange {
    std::optional<bool> muted; // Else the level:
    int32_t level = 0;
    bool relative = false;
};
std::optional<VolumeChange> parse_volume(std::string_view text);

// @param text as parse_volume() reads it; "" only asks.
CommandResult run_volume(Client &client, const std::string &text);

// @param text "on", "off" or "toggle"; "" only asks.
CommandResult run_shuffle(Client &client, const std::string &text);

// @param text as parse_repeat() reads it, or "toggle", between off and all; "" only asks.
CommandResult run_repeat(Client &client, const std::string &text);

} // namespace vantro::ctl

#endif
