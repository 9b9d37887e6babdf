// Splits a line of a client into words.
#ifndef VANTRO_BRIDGES_MPD_LINE_PARSER_H
#define VANTRO_BRIDGES_MPD_LINE_PARSER_H

#include <string>
#include <string_view>
#include <vector>

namespace vantro::mpd {

// More words than any command has; `find` and `tagtypes` take the most.
constexpr size_t words_max = 256;

// Splits a line, without its end, into the command and its arguments. Blanks and tabs separate
// words. A word in quotation marks may contain them; in it, a backslash escapes the next character.
// @throws Ack if the line is malformed.
std::vector<std::string> parse_line(std::string_view line);

} // namespace vantro::mpd

#endif
