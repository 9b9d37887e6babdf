#include "tools/vantroctl/text/arithmetic.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include <fmt/format.h>

namespace vantro::ctl {
namespace {

template <class Number>
std::optional<Number> number_in(std::string_view text) {
    Number number = 0;
    const char *const end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && at == end ? std::optional(number) : std::nullopt;
}

// Nothing if the result does not fit.
std::optional<int64_t> whole_result(char operation, int64_t left, int64_t right) {
    int64_t result = 0;
    switch (operation) {
    case '+':
        return __builtin_add_overflow(left, right, &result) ? std::nullopt : std::optional(result);
    case '-':
        return __builtin_sub_overflow(left, right, &result) ? std::nullopt : std::optional(result);
    case '*':
        return __builtin_mul_overflow(left, right, &result) ? std::nullopt : std::optional(result);
    default: {
        const bool fits =
            right != 0 && (left != std::numeric_limits<int64_t>::min() || right != -1);
        return fits ? std::optional(left / right) : std::nullopt;
    }
    }
}

double broken_result(char operation, double left, double right) {
    switch (operation) {
    case '+':
        return left + right;
    case '-':
        return left - right;
    case '*':
        return left * right;
    default:
        return left / right;
    }
}

} // namespace

bool is_number(std::string_view text) {
    const std::optional<double> number = number_in<double>(text);
    return number && std::isfinite(*number);
}

std::string calculate(char operation, std::string_view left, std::string_view right) {
    if (!is_number(left) || !is_number(right)) {
        return {};
    }
    const auto whole_left = number_in<int64_t>(left);
    const auto whole_right = number_in<int64_t>(right);
    if (whole_left && whole_right) {
        const auto result = whole_result(operation, *whole_left, *whole_right);
        return result ? fmt::format("{}", *result) : std::string();
    }
    const double result =
        broken_result(operation, *number_in<double>(left), *number_in<double>(right));
    // Adding 0 turns -0 into 0.
    return std::isfinite(result) ? fmt::format("{}", std::round(result * 1000) / 1000 + 0.0)
                                 : std::string();
}

} // namespace vantro::ctl
