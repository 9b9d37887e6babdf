#include "tools/vantroctl/output/colour.h"

#include <algorithm>
#include <cstdlib>

#include <unistd.h>

namespace vantro::ctl {
namespace {

ColourMode colour_mode = ColourMode::never;

constexpr std::string_view end_of_ink = "\x1B[0m";

std::string_view start_of(Ink ink) {
    return ink == Ink::playing ? "\x1B[1m" : "\x1B[31m";
}

bool has_colours(int descriptor) {
    if (colour_mode != ColourMode::automatic) {
        return colour_mode == ColourMode::always;
    }
    const char *const refused = std::getenv("NO_COLOR");
    const char *const terminal = std::getenv("TERM");
    return !(refused && *refused) && terminal && *terminal &&
           std::string_view(terminal) != "dumb" && isatty(descriptor) != 0;
}

} // namespace

std::optional<ColourMode> parse_colour_mode(std::string_view text) {
    return text == "auto"     ? std::optional(ColourMode::automatic)
           : text == "always" ? std::optional(ColourMode::always)
           : text == "never"  ? std::optional(ColourMode::never)
                              : std::nullopt;
}

void set_colour_mode(ColourMode mode) {
    colour_mode = mode;
}

std::string painted(Ink ink, std::string_view lines, int descriptor) {
    if (ink == Ink::plain || !has_colours(descriptor)) {
        return std::string(lines);
    }
    std::string text;
    while (!lines.empty()) { // Each line separately, since a pager may show any line first.
        const size_t end = std::min(lines.find('\n'), lines.size());
        text.append(start_of(ink)).append(lines.substr(0, end)).append(end_of_ink);
        text += lines.substr(end, 1);
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    return text;
}

std::string unpainted(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const size_t begin = std::min(text.find('\x1B'), text.size());
        result += text.substr(0, begin);
        const size_t end = std::min(text.find('m', begin), text.size());
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return result;
}

} // namespace vantro::ctl
