// Makes foreign text safe and fit for a terminal.
//
// Tags and names come from files of unknown origin. On a terminal a control character in them moves
// the cursor, changes the title or the direction of writing; in a JSON text a broken sequence makes
// the whole text unreadable. The length of a line is measured in columns, not in bytes.
#ifndef VANTRO_TOOLS_VANTROCTL_TEXT_DISPLAY_TEXT_H
#define VANTRO_TOOLS_VANTROCTL_TEXT_DISPLAY_TEXT_H

#include <string>
#include <string_view>
#include <vector>

namespace vantro::ctl {

// Combining characters kept on one base character; more would be drawn over other lines.
constexpr int combining_max = 8;

// The text with every malformed UTF-8 sequence replaced by U+FFFD.
std::string valid_text(std::string_view text);

// A text of JSON, valid UTF-8, in which every character that a terminal could obey or a reader
// overlook (controls, marks of the writing direction and the like) is written as \uXXXX. Its value
// stays the same, since JSON has such characters only within strings.
std::string escape_unsafe(std::string_view json);

// One safe line: valid UTF-8, white space of every kind as a blank, and U+FFFD for control
// characters, bidirectional formatting characters, and characters that no terminal can show.
std::string clean_text(std::string_view text);

// Columns that a clean text takes.
int display_width(std::string_view text);

// A clean text in at most `columns` columns. A longer text is cut between characters and ends in an
// ellipsis: combining characters stay with their base, and wide ones are not split.
std::string clip_text(std::string_view text, int columns);

// A clean text in lines of at most `columns` columns, 1 or more, broken at blanks if possible.
std::vector<std::string> fold_text(std::string_view text, int columns);

} // namespace vantro::ctl

#endif
