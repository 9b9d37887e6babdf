// The verbs that control a player.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_COMMANDS_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/vantroctl/model/command_result.h"

namespace vantro::ctl {

class Client;
struct ListOptions;

// Reads a finite number, independently of the locale. @return nothing for any other text.
std::optional<float> parse_rate(std::string_view text);

// The number of a repeat mode's name, or nothing.
std::optional<int32_t> parse_repeat(std::string_view text);

// A command without argument: play, pause, toggle, stop, next, previous.
CommandResult run_plain(Client &client, const std::string &verb);

// Adds the current track to a result.
void tell_track(Client &client, CommandResult &result);

// @param text in the form of parse_seek() or parse_percent().
CommandResult run_seek(Client &client, const std::string &text);

// @param text in the form of parse_rate().
CommandResult run_rate(Client &client, const std::string &text);

// "40", "+5", "-5", "mute" or "unmute".
struct VolumeChange {
    std::optional<bool> muted; // If empty, the level:
    int32_t level = 0;
    bool relative = false;
};
std::optional<VolumeChange> parse_volume(std::string_view text);

// @param text in the form of parse_volume(); "" only queries.
CommandResult run_volume(Client &client, const std::string &text);

// @param text "on", "off" or "toggle"; "" only queries.
CommandResult run_shuffle(Client &client, const std::string &text);

// @param text in the form of parse_repeat(), or "toggle", between off and all; "" only queries.
CommandResult run_repeat(Client &client, const std::string &text);

// Scans all music, the source of the options, or the folders of a node's songs.
CommandResult run_rescan(Client &client, const ListOptions &options,
                         const std::optional<std::string> &node);

} // namespace vantro::ctl

#endif
