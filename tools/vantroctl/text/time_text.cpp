#include "tools/vantroctl/text/time_text.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <limits>

#include <fmt/format.h>

namespace vantro::ctl {
namespace {

constexpr int64_t longest_ms = std::numeric_limits<int32_t>::max();

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Takes the digits at the start of `text`; -1 if there is none or they exceed any position.
int64_t take_number(std::string_view &text, size_t &digits) {
    int64_t value = 0;
    digits = 0;
    while (digits < text.size() && is_digit(text[digits])) {
        value = value * 10 + (text[digits++] - '0');
        if (value > longest_ms) {
            return -1;
        }
    }
    text.remove_prefix(digits);
    return digits > 0 ? value : -1;
}

// Takes the digits after a decimal point, as milliseconds; finer digits are dropped.
int64_t take_fraction(std::string_view &text) {
    int64_t ms = 0;
    int64_t unit = 100;
    size_t digits = 0;
    for (; digits < text.size() && is_digit(text[digits]); ++digits, unit /= 10) {
        ms += (text[digits] - '0') * unit;
    }
    text.remove_prefix(digits);
    return digits > 0 ? ms : -1;
}

struct LocalTime {
    explicit LocalTime(std::chrono::system_clock::time_point time) {
        using namespace std::chrono;
        const auto whole = floor<seconds>(time);
        ms = static_cast<int>(duration_cast<milliseconds>(time - whole).count());
        const std::time_t seconds_since = whole.time_since_epoch().count();
        localtime_r(&seconds_since, &parts);
    }
    std::tm parts = {};
    int ms = 0;
};

} // namespace

int32_t SeekTarget::from(int32_t current_ms) const {
    const int64_t target = relative ? int64_t{current_ms} + ms : int64_t{ms};
    return static_cast<int32_t>(std::clamp(target, int64_t{0}, longest_ms));
}

std::optional<SeekTarget> parse_seek(std::string_view text) {
    SeekTarget target;
    int64_t sign = 1;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        target.relative = true;
        sign = text.front() == '-' ? -1 : 1;
        text.remove_prefix(1);
    }
    int64_t seconds = 0;
    for (int part = 0; part < 3; ++part) {
        size_t digits = 0;
        const int64_t number = take_number(text, digits);
        if (number < 0 || (part > 0 && (digits != 2 || number > 59))) {
            return std::nullopt;
        }
        seconds = seconds * 60 + number;
        if (text.empty() || text.front() != ':') {
            break;
        }
        if (part == 2) {
            return std::nullopt;
        }
        text.remove_prefix(1);
    }
    int64_t fraction = 0;
    if (!text.empty() && text.front() == '.') {
        text.remove_prefix(1);
        fraction = take_fraction(text);
    }
    const int64_t ms = seconds * 1000 + fraction;
    if (fraction < 0 || !text.empty() || ms > longest_ms) {
        return std::nullopt;
    }
    target.ms = static_cast<int32_t>(sign * ms);
    return target;
}

int32_t PercentTarget::from(int32_t current_ms, int32_t length_ms) const {
    const double target = (relative ? current_ms : 0) + length_ms * (percent / 100);
    return static_cast<int32_t>(std::clamp(target, 0.0, static_cast<double>(length_ms)));
}

std::optional<PercentTarget> parse_percent(std::string_view text) {
    if (!text.ends_with('%')) {
        return std::nullopt;
    }
    PercentTarget target;
    target.relative = text.front() == '+' || text.front() == '-';
    const bool back = text.front() == '-';
    text.remove_prefix(target.relative ? 1 : 0);
    const char *const number_end = text.data() + text.size() - 1;
    const auto [end, error] =
        std::from_chars(text.data(), number_end, target.percent, std::chars_format::fixed);
    const bool good = error == std::errc() && end == number_end && text.front() != '-' &&
                      target.percent >= 0 && target.percent <= 100;
    target.percent = back ? -target.percent : target.percent;
    return good ? std::optional(target) : std::nullopt;
}

std::string format_time(int32_t ms) {
    const int32_t seconds = std::max(ms, 0) / 1000;
    const int32_t hours = seconds / 3600;
    const int32_t minutes = seconds / 60 % 60;
    return hours > 0 ? fmt::format("{}:{:02}:{:02}", hours, minutes, seconds % 60)
                     : fmt::format("{}:{:02}", minutes, seconds % 60);
}

std::string clock_text(std::chrono::system_clock::time_point time) {
    const LocalTime local(time);
    return fmt::format("{:02}:{:02}:{:02}.{:03}", local.parts.tm_hour, local.parts.tm_min,
                       local.parts.tm_sec, local.ms);
}

std::string date_time_text(std::chrono::system_clock::time_point time) {
    const LocalTime local(time);
    const long east_min = local.parts.tm_gmtoff / 60;
    return fmt::format("{:04}-{:02}-{:02}T{}{}{:02}:{:02}", local.parts.tm_year + 1900,
                       local.parts.tm_mon + 1, local.parts.tm_mday, clock_text(time),
                       east_min < 0 ? '-' : '+', std::labs(east_min) / 60,
                       std::labs(east_min) % 60);
}

} // namespace vantro::ctl
