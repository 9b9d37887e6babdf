// Arithmetic in templates.
#ifndef VANTRO_TOOLS_VANTROCTL_TEXT_ARITHMETIC_H
#define VANTRO_TOOLS_VANTROCTL_TEXT_ARITHMETIC_H

#include <string>
#include <string_view>

namespace vantro::ctl {

// Whether a text is a number, such as 3 or 1.5.
bool is_number(std::string_view text);

// Two whole numbers give a whole number, and a division drops the remainder; otherwise the result
// is rounded to three decimal places.
// @param operation '+', '-', '*' or '/'.
// @return "" if a value is not a number, for a division by 0, and if the result is too large.
std::string calculate(char operation, std::string_view left, std::string_view right);

} // namespace vantro::ctl

#endif
