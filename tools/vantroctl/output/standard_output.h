// Standard output and the terminal behind it.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_STANDARD_OUTPUT_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_STANDARD_OUTPUT_H

#include <optional>
#include <string_view>

namespace vantro::ctl {

// Makes sure that descriptors 0 to 2 are taken, so that nothing opened later becomes standard
// output by accident, and that a closed pipe is an error instead of ending the process. Call it
// first.
void prepare_output();

// Writes all of it. @return false, with errno, if not all went out.
bool write_output(std::string_view text, int descriptor = 1);

// The same. @throws Failure.
void print(std::string_view text);

// A line on standard error, with the program's name in front. Characters that a terminal would obey
// are replaced.
void complain(std::string_view text);

bool output_is_terminal();

// The terminal's width, or else that in COLUMNS, or else 80.
int output_columns();

// The same; nothing if standard output is no terminal.
std::optional<int> terminal_columns();

// The terminal's height, or else that in LINES, or else 24.
int output_rows();

} // namespace vantro::ctl

#endif
