#include "bridges/web/target.h"

#include <charconv>
#include <utility>

#include <fmt/format.h>

#include "bridges/web/api_error.h"

namespace vantro::web {
namespace {

int digit_of(char c) {
    const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    const size_t at = std::string_view("0123456789abcdef").find(lower);
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

std::string decoded(std::string_view text, bool plus) {
    std::optional<std::string> plain = percent_decoded(text, plus);
    if (!plain) {
        throw bad_request("the address contains a bad escape or a control character");
    }
    return *std::move(plain);
}

// Removes the text up to and with the separator, and returns it without the separator.
std::string_view take(std::string_view &rest, char separator) {
    const size_t end = rest.find(separator);
    const std::string_view part = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return part;
}

} // namespace

std::optional<std::string> percent_decoded(std::string_view text, bool plus) {
    std::string plain;
    plain.reserve(text.size());
    for (size_t at = 0; at < text.size(); ++at) {
        char byte = text[at];
        if (byte == '%') {
            const int high = at + 2 < text.size() ? digit_of(text[at + 1]) : -1;
            const int low = high >= 0 ? digit_of(text[at + 2]) : -1;
            if (low < 0) {
                return std::nullopt;
            }
            byte = static_cast<char>(high * 16 + low);
            at += 2;
        } else if (byte == '+' && plus) {
            byte = ' ';
        }
        if (static_cast<unsigned char>(byte) < ' ' || byte == '\x7f') {
            return std::nullopt;
        }
        plain += byte;
    }
    return plain;
}

Target Target::parse(std::string_view raw) {
    if (raw.size() > target_bytes_max) {
        throw ApiError(414, "address_too_long",
                       fmt::format("an address has at most {} bytes", target_bytes_max));
    }
    if (!raw.starts_with('/')) {
        throw bad_request("the address does not begin with '/'");
    }
    Target target;
    std::string_view query = raw.substr(0, raw.find('#'));
    std::string_view path = take(query, '?');
    path.remove_prefix(1);
    while (!path.empty()) {
        std::string segment = decoded(take(path, '/'), false);
        if (segment == "." || segment == "..") {
            throw bad_request("the path contains \".\" or \"..\"");
        }
        target.segments.push_back(std::move(segment));
    }
    while (!query.empty()) {
        std::string_view value = take(query, '&');
        std::string name = decoded(take(value, '='), true);
        if (!target.query.try_emplace(std::move(name), decoded(value, true)).second) {
            throw bad_request("a parameter is given twice");
        }
    }
    return target;
}

const std::string &Target::text(std::string_view name) const {
    const auto found = query.find(name);
    if (found == query.end()) {
        throw bad_request(fmt::format("the parameter \"{}\" is missing", name));
    }
    return found->second;
}

int64_t Target::number(std::string_view name, int64_t least, int64_t most,
                       std::optional<int64_t> otherwise) const {
    if (otherwise && !query.contains(name)) {
        return *otherwise;
    }
    const std::string &digits = text(name);
    const char *const end = digits.data() + digits.size();
    int64_t value = 0;
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    if (error != std::errc() || stop != end || value < least || value > most) {
        throw bad_request(
            fmt::format("the parameter \"{}\" is not a number from {} to {}", name, least, most));
    }
    return value;
}

} // namespace vantro::web
