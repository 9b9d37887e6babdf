// Texts and screens for the status of a player.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_STATUS_VIEW_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_STATUS_VIEW_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/vantroctl/model/player_status.h"
#include "tools/vantroctl/output/colour.h"

namespace vantro::ctl {

// "idle", "playing", "paused", "stopped"; "none" for 0, and "unknown" for the rest.
const char *state_name(int32_t state);

// The ink for the current track.
Ink ink_of(const PlayerStatus &status);

// "off", "all", "one", and "unknown" for the rest.
const char *repeat_name(int32_t repeat);

// "off" or "on".
const char *shuffle_name(int32_t shuffle);

// "80", "80, muted".
std::string volume_text(const Volume &volume);

// The shortest decimal text of a rate that reads back as the same number.
std::string rate_text(float rate);

// "2 of 12: Title - Artist - Album (3:25)", without unknown parts.
std::string track_words(const TrackStatus &track, const std::optional<SessionStatus> &session);

// One screen for a person, no line longer than `columns`.
std::string render_screen(const PlayerStatus &status, int columns);

// One "key: value" line for each of player, state, track, tracks, title, artist, album, position,
// duration, repeat, shuffle, rate: always all of them, in this order; nothing follows the colon if
// the value is unknown.
std::string render_lines(const PlayerStatus &status);

} // namespace vantro::ctl

#endif
