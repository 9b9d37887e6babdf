// Standard output and the terminal behind it.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_STANDARD_OUTPUT_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_STANDARD_OUTPUT_H

#include <optional>
#include <string_view>

namespace vantro::ctl {

// Ensures that descriptors 0 to 2 are in use, so that no file opened later becomes standard output
// by accident, and that a closed pipe causes an error instead of ending the process. Call it first.
void prepare_output();

// Writes all of it. @return false, with errno, if not all went out.
bool write_output(std::string_view text, int descriptor = 1);

// The same. @throws Failure.
void print(std::string_view text);

// A line on standard error, with the program's name in front. Characters that a terminal would obey
// are replaced.
void complain(std::string_view text);

bool output_is_terminal();

// The terminal's width, else the value of COLUMNS, else 80.
int output_columns();

// The same; nothing if standard output is not a terminal.
std::optional<int> terminal_columns();

// The terminal's height, else the value of LINES, else 24.
int output_rows();

} // namespace vantro::ctl

#endif
