// Texts and numbers of the protocol.
#ifndef VANTRO_BRIDGES_MPD_TEXT_H
#define VANTRO_BRIDGES_MPD_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantro::mpd {

// Whether two names of the protocol are the same; the case of ASCII letters is ignored.
bool same_name(std::string_view one, std::string_view other);

// The text in lower case, in any script that the C library knows. Bytes that are not UTF-8 stay.
std::string folded(std::string_view text);

// The text with blanks instead of line ends, which a line of the protocol cannot contain. All texts
// of the catalogue are compared in this form, so that clients can request the names that they got.
std::string one_line(std::string_view text);

// Numbers in arguments. @throws Ack if the text is not a number, or out of range.
int32_t parse_integer(std::string_view text, int32_t least, int32_t most);
uint32_t parse_unsigned(std::string_view text);
bool parse_switch(std::string_view text);

// A number of seconds, which may have a fraction, in milliseconds. The caller handles signs.
int32_t parse_milliseconds(std::string_view text);

// From `begin` up to, but not including, `end`.
struct Range {
    uint32_t begin = 0;
    uint32_t end = UINT32_MAX;
};

// "START:END", "START:" or, for one entry, "START". @throws Ack.
Range parse_range(std::string_view text);

// Seconds since 1970 of a date, "2026-11-26T10:00:00Z", or of a number of seconds.
std::optional<int64_t> parse_time(std::string_view text);
std::string format_time(int64_t seconds);

} // namespace vantro::mpd

#endif
