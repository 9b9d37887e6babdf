// A request's target: the path and the query of its first line.
#ifndef VANTRO_BRIDGES_WEB_TARGET_H
#define VANTRO_BRIDGES_WEB_TARGET_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantro::web {

// Longer ones are refused: ids and search terms need far less.
constexpr size_t target_bytes_max = 8192;

// Replaces each %XX by its byte, and with `plus` each '+' by a space. @return nothing if a '%' is
// not followed by two digits, or the result has a byte below 32 or the byte 127, which no path or
// id needs.
std::optional<std::string> percent_decoded(std::string_view text, bool plus);

struct Target {
    std::vector<std::string> segments; // Of the path, decoded; none for "/".
    std::map<std::string, std::string, std::less<>> query;

    // @throws ApiError if it is malformed, too long, or contains "..".
    static Target parse(std::string_view raw);

    // Values of the query. @throws ApiError if the value is missing or not a number in the
    // range.
    const std::string &text(std::string_view name) const;
    int64_t number(std::string_view name, int64_t least, int64_t most,
                   std::optional<int64_t> otherwise = std::nullopt) const;
};

} // namespace vantro::web

#endif
