// Positions and durations as people write them.
#ifndef VANTRO_TOOLS_VANTROCTL_TEXT_TIME_TEXT_H
#define VANTRO_TOOLS_VANTROCTL_TEXT_TIME_TEXT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantro::ctl {

// Where to seek to: a position, or a distance from the current one.
struct SeekTarget {
    bool relative = false;
    int32_t ms = 0; // Below zero only if relative.

    // The position in milliseconds, at least 0.
    int32_t from(int32_t current_ms) const;
};

// Reads "83", "1:23" or "1:02:03", each with an optional fraction of a second ("83.5") and an
// optional sign that makes it relative. After a colon exactly two digits below 60 must follow:
// "1:5" could mean 1:05 or 1:50, and is refused.
// @return nothing for any other text, and for times beyond the range of a position.
std::optional<SeekTarget> parse_seek(std::string_view text);

// A part of a track's length: the position there, or a distance from the current one.
struct PercentTarget {
    bool relative = false;
    double percent = 0; // Below zero only if relative.

    // The position in milliseconds, within the track.
    int32_t from(int32_t current_ms, int32_t length_ms) const;
};

// Reads "50%", from 0% to 100%, with an optional sign that makes it relative.
// @return nothing for any other text.
std::optional<PercentTarget> parse_percent(std::string_view text);

// "1:23", or "1:02:03" from an hour up; a negative value counts as zero.
std::string format_time(int32_t ms);

// The local time of day, "22:41:07.123".
std::string clock_text(std::chrono::system_clock::time_point time);

// Local date and time with the offset from UTC, "2026-11-24T22:41:07.123+01:00".
std::string date_time_text(std::chrono::system_clock::time_point time);

} // namespace vantro::ctl

#endif
