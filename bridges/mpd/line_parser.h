// A line of a client, as words.
#ifndef VANTRO_BRIDGES_MPD_LINE_PARSER_H
#define VANTRO_BRIDGES_MPD_LINE_PARSER_H

#include <string>
#include <string_view>
#include <vector>

namespace vantro::mpd {

// More words than any command has; `find` and `tagtypes` take the most.
constexpr size_t words_max = 256;

// Splits a line without its end into the command and its arguments. Words are separated by blanks
// and tabs. A word in quotation marks may hold them, and a backslash there takes the next character
// as it is. @throws Ack where the line is none.
std::vector<std::string> parse_line(std::string_view line);

} // namespace vantro::mpd

#endif
