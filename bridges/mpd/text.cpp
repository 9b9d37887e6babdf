#include "bridges/mpd/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>
#include <cwchar>
#include <cwctype>

#include <fmt/format.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/tags.h"

namespace vantro::mpd {
namespace {

// Tags that the catalogue does not have. Clients name them in `tagtypes`, and search for them.
constexpr std::array<std::string_view, 24> absent_tags = {"Name",
                                                          "ArtistSort",
                                                          "AlbumSort",
                                                          "AlbumArtistSort",
                                                          "TitleSort",
                                                          "OriginalDate",
                                                          "ComposerSort",
                                                          "Performer",
                                                          "Work",
                                                          "Ensemble",
                                                          "Movement",
                                                          "MovementNumber",
                                                          "ShowMovement",
                                                          "Location",
                                                          "Grouping",
                                                          "Label",
                                                          "Mood",
                                                          "MUSICBRAINZ_ARTISTID",
                                                          "MUSICBRAINZ_ALBUMID",
                                                          "MUSICBRAINZ_ALBUMARTISTID",
                                                          "MUSICBRAINZ_TRACKID",
                                                          "MUSICBRAINZ_RELEASETRACKID",
                                                          "MUSICBRAINZ_RELEASEGROUPID",
                                                          "MUSICBRAINZ_WORKID"};

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

template <typename Number>
std::optional<Number> number_in(std::string_view text) {
    Number number{};
    const char *const end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && at == end ? std::optional(number) : std::nullopt;
}

[[noreturn]] void refuse_number(std::string_view text) {
    throw Ack(AckCode::argument, fmt::format("not a number, or out of range: \"{}\"", text));
}

} // namespace

bool same_name(std::string_view one, std::string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

std::optional<Tag> tag_named(std::string_view name) {
    for (size_t i = 0; i < tag_count; ++i) {
        if (same_name(tag_names[i].name, name)) {
            return static_cast<Tag>(i);
        }
    }
    const bool known = std::any_of(absent_tags.begin(), absent_tags.end(),
                                   [&](std::string_view each) { return same_name(each, name); });
    return known ? std::optional(Tag::absent) : std::nullopt;
}

std::string folded(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::mbstate_t in_state{};
    while (!text.empty()) {
        if (static_cast<unsigned char>(text.front()) < 0x80) {
            out += lower(text.front());
            text.remove_prefix(1);
            continue;
        }
        wchar_t wide = 0;
        const size_t length = std::mbrtowc(&wide, text.data(), text.size(), &in_state);
        char bytes[16];
        std::mbstate_t out_state{};
        size_t written = 0;
        if (length > 0 && length <= text.size()) {
            written = std::wcrtomb(
                bytes, static_cast<wchar_t>(std::towlower(static_cast<wint_t>(wide))), &out_state);
        }
        if (written == 0 || written > sizeof bytes) {
            in_state = {};
            out += text.front();
            text.remove_prefix(1);
            continue;
        }
        out.append(bytes, written);
        text.remove_prefix(length);
    }
    return out;
}

std::string one_line(std::string_view text) {
    std::string line(text);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return line;
}

int32_t parse_integer(std::string_view text, int32_t least, int32_t most) {
    if (text.size() > 1 && text.front() == '+') {
        text.remove_prefix(1);
    }
    const std::optional<int32_t> number = number_in<int32_t>(text);
    if (!number || *number < least || *number > most) {
        refuse_number(text);
    }
    return *number;
}

uint32_t parse_unsigned(std::string_view text) {
    const std::optional<uint32_t> number = number_in<uint32_t>(text);
    if (!number) {
        refuse_number(text);
    }
    return *number;
}

bool parse_switch(std::string_view text) {
    if (text != "0" && text != "1") {
        throw Ack(AckCode::argument, fmt::format("0 or 1 expected, not \"{}\"", text));
    }
    return text == "1";
}

int32_t parse_milliseconds(std::string_view text) {
    const std::optional<double> seconds = number_in<double>(text);
    if (!seconds || !std::isfinite(*seconds) || std::abs(*seconds) > INT32_MAX / 1000) {
        refuse_number(text);
    }
    return static_cast<int32_t>(std::lround(*seconds * 1000));
}

Range parse_range(std::string_view text) {
    const size_t colon = text.find(':');
    const uint32_t begin = parse_unsigned(text.substr(0, colon));
    if (colon == std::string_view::npos) {
        return {begin, begin == UINT32_MAX ? begin : begin + 1};
    }
    const std::string_view rest = text.substr(colon + 1);
    const Range range{begin, rest.empty() ? UINT32_MAX : parse_unsigned(rest)};
    if (range.begin > range.end) {
        throw Ack(AckCode::argument, fmt::format("the range ends before it begins: \"{}\"", text));
    }
    return range;
}

std::optional<int64_t> parse_time(std::string_view text) {
    if (const std::optional<int64_t> seconds = number_in<int64_t>(text)) {
        return seconds;
    }
    std::tm parts{};
    const std::string copy(text);
    const char *rest = strptime(copy.c_str(), "%Y-%m-%d", &parts);
    if (rest && *rest == 'T') {
        rest = strptime(rest, "T%H:%M:%S", &parts);
        rest = rest && *rest == 'Z' ? rest + 1 : rest;
    }
    return rest && *rest == '\0' ? std::optional<int64_t>(timegm(&parts)) : std::nullopt;
}

std::string format_time(int64_t seconds) {
    const time_t time = seconds;
    std::tm parts{};
    char text[32];
    if (!gmtime_r(&time, &parts) ||
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) {
        return "1970-01-01T00:00:00Z";
    }
    return text;
}

} // namespace vantro::mpd
