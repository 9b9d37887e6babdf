#include "bridges/mpris/song.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iterator>

#include <fmt/format.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>
#include <unistd.h>

namespace vantro::mpris {

namespace {

// The most bytes of a value that are published; a title of this length is a mistake in a tag.
constexpr size_t text_bytes_max = 4096;

int64_t number(std::string_view text) {
    int64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return std::max<int64_t>(value, 0);
}

int32_t small_number(std::string_view text) {
    return static_cast<int32_t>(std::min<int64_t>(number(text), INT32_MAX));
}

// The URL of a file; nothing if its name is not UTF-8: its bytes are then unknown.
std::string url_of(std::string_view path) {
    constexpr std::string_view replaced = "\xEF\xBF\xBD";
    constexpr std::string_view unescaped = "-._~/!$&'()*+,;=:@";
    if (!path.starts_with('/') || path.find(replaced) != std::string_view::npos) {
        return {};
    }
    std::string url = "file://";
    for (const char byte : path) {
        const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= '0' && byte <= '9') ||
                           unescaped.find(byte) != std::string_view::npos;
        url += plain ? std::string(1, byte) : fmt::format("%{:02X}", static_cast<uint8_t>(byte));
    }
    return url;
}

// The path in a file's URL; empty if it is not one.
std::string path_in(std::string_view url) {
    constexpr std::string_view scheme = "file://";
    if (!url.starts_with(scheme)) {
        return {};
    }
    std::string path;
    for (size_t at = scheme.size(); at < url.size(); ++at) {
        unsigned char byte = static_cast<unsigned char>(url[at]);
        if (byte == '%' && at + 2 < url.size()) {
            const char *const digits = url.data() + at + 1;
            if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) {
                return {};
            }
            at += 2;
        }
        path += static_cast<char>(byte);
    }
    return path;
}

// Drops a picture that this user cannot read, such as one of another user's service.
std::string readable(std::string_view url) {
    const std::string path = path_in(url);
    return !path.empty() && access(path.c_str(), R_OK) == 0 ? url_of(path) : std::string();
}

// A tag's year may be any text; one that begins with four digits is a year or a date.
std::string date_of(std::string_view text) {
    const auto digit = [](char byte) { return byte >= '0' && byte <= '9'; };
    return text.size() >= 4 && std::all_of(text.begin(), text.begin() + 4, digit) ? clean_text(text)
                                                                                  : std::string();
}

} // namespace

std::string clean_text(std::string_view text) {
    std::string clean;
    const auto length = static_cast<int32_t>(std::min(text.size(), text_bytes_max));
    for (int32_t at = 0; at < length;) {
        UChar32 point = 0;
        U8_NEXT(text.data(), at, length, point);
        if (!U_IS_UNICODE_CHAR(point) || point == 0) {
            point = 0xFFFD;
        }
        char bytes[U8_MAX_LENGTH];
        int32_t count = 0;
        U8_APPEND_UNSAFE(bytes, count, point);
        clean.append(bytes, static_cast<size_t>(count));
    }
    return clean;
}

Song song_of(const Metadata *metadata) {
    Song song;
    if (metadata) {
        song.length_us = int64_t{1000} * std::max(metadata->duration, 0);
        song.title = clean_text(text(metadata->title));
        song.artist = clean_text(text(metadata->artist));
        song.album = clean_text(text(metadata->album));
        song.genre = clean_text(text(metadata->genre));
        song.created = date_of(text(metadata->year));
        song.art_url = readable(text(metadata->artwork));
        song.disc = std::max(metadata->disc, 0);
        song.track = std::max(metadata->track, 0);
    }
    return song;
}

void complete(Song &song, Player &player, int32_t ms_id, const std::string &node_id) {
    const auto values =
        player.values(ms_id, node_id.c_str(),
                      {VANTRO_KEY_TITLE, VANTRO_KEY_ARTIST, VANTRO_KEY_ALBUM, VANTRO_KEY_GENRE,
                       VANTRO_KEY_ALBUM_ARTIST, VANTRO_KEY_COMPOSER, VANTRO_KEY_YEAR,
                       VANTRO_KEY_PATH, VANTRO_KEY_ARTWORK, VANTRO_KEY_DURATION, VANTRO_KEY_DISC,
                       VANTRO_KEY_TRACK, VANTRO_KEY_BPM});
    if (!values) {
        return;
    }
    const auto value = [&](size_t which) { return text((*values)[which].get()); };
    std::string *const texts[] = {&song.title, &song.artist,       &song.album,
                                  &song.genre, &song.album_artist, &song.composer};
    for (size_t which = 0; which < std::size(texts); ++which) {
        if (!value(which).empty()) {
            *texts[which] = clean_text(value(which));
        }
    }
    song.created = date_of(value(6));
    song.url = url_of(value(7));
    song.art_url = readable(value(8));
    if (const int64_t length_ms = number(value(9)); length_ms > 0) {
        song.length_us = 1000 * std::min<int64_t>(length_ms, INT32_MAX);
    }
    song.disc = small_number(value(10));
    song.track = small_number(value(11));
    song.beats_per_minute = small_number(value(12));
}

} // namespace vantro::mpris
