// Texts and numbers of the protocol.
#ifndef VANTRO_BRIDGES_MPD_TEXT_H
#define VANTRO_BRIDGES_MPD_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantro::mpd {

// Whether two names of the protocol are the same; only letters of ASCII have two cases.
bool same_name(std::string_view one, std::string_view other);

// The text in lower case, in any script that the C library knows. Bytes that are no UTF-8 stay.
std::string folded(std::string_view text);

// Numbers as arguments have them. @throws Ack where the text is none, or out of range.
int32_t parse_integer(std::string_view text, int32_t least, int32_t most);
uint32_t parse_unsigned(std::string_view text);
bool parse_switch(std::string_view text);

// Milliseconds of a number of seconds, which may have a fraction. Signs are the caller's.
int32_t parse_milliseconds(std::string_view text);

// From the first entry on, up to but without `end`.
struct Range {
    uint32_t begin = 0;
    uint32_t end = UINT32_MAX;
};

// "START:END", "START:" or, for one entry, "START". @throws Ack.
Range parse_range(std::string_view text);

// Seconds since 1970 of a date, "2026-11-26T10:00:00Z", or of such a number.
std::optional<int64_t> parse_time(std::string_view text);
std::string format_time(int64_t seconds);

} // namespace vantro::mpd

#endif
