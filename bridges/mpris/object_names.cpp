#include "bridges/mpris/object_names.h"

#include <charconv>
#include <cstdlib>
#include <memory>

#include <fmt/format.h>
#include <systemd/sd-bus.h>

namespace vantro::mpris {

namespace {

constexpr std::string_view track_prefix = "/org/vantro/track/";
constexpr const char *playlist_prefix = "/org/vantro/playlist";

struct FreeBlock {
    void operator()(char *block) const { std::free(block); }
};
using Block = std::unique_ptr<char, FreeBlock>;

bool is_digit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool is_letter(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

// Removes a number from the front of the text.
template <typename Number>
bool take_number(std::string_view &text, Number &number) {
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || !is_digit(text.front())) {
        return false;
    }
    text.remove_prefix(static_cast<size_t>(stop - text.data()));
    return true;
}

} // namespace

std::string bus_name_of(std::string_view player) {
    std::string name = "org.mpris.MediaPlayer2.vantro.";
    const size_t begin = name.size();
    for (const char byte : player) {
        if (is_letter(byte) || byte == '_' || (is_digit(byte) && name.size() > begin)) {
            name += byte;
        } else {
            name += fmt::format("-{:02x}", static_cast<unsigned char>(byte));
        }
    }
    return name;
}

std::string path_of(const TrackPlace &place) {
    return fmt::format("{}{}/{}", track_prefix, place.tsid, place.index);
}

std::optional<TrackPlace> track_place_of(std::string_view path) {
    TrackPlace place;
    if (!path.starts_with(track_prefix)) {
        return std::nullopt;
    }
    path.remove_prefix(track_prefix.size());
    if (!take_number(path, place.tsid) || !path.starts_with('/')) {
        return std::nullopt;
    }
    path.remove_prefix(1);
    return take_number(path, place.index) && path.empty() ? std::optional(place) : std::nullopt;
}

std::string path_of(const PlaylistNode &playlist) {
    char *path = nullptr;
    const std::string source = fmt::format("{}/{}", playlist_prefix, playlist.ms_id);
    const int result = sd_bus_path_encode(source.c_str(), playlist.node_id.c_str(), &path);
    const Block owned(path);
    return result >= 0 ? std::string(path) : std::string("/");
}

std::optional<PlaylistNode> playlist_of(const std::string &path) {
    PlaylistNode playlist;
    const size_t end = path.rfind('/');
    std::string_view source(path);
    source = source.substr(0, end == std::string::npos ? 0 : end);
    const std::string begin = fmt::format("{}/", playlist_prefix);
    if (!source.starts_with(begin)) {
        return std::nullopt;
    }
    std::string_view number = source.substr(begin.size());
    char *id = nullptr;
    if (!take_number(number, playlist.ms_id) || !number.empty() ||
        sd_bus_path_decode(path.c_str(), std::string(source).c_str(), &id) <= 0) {
        return std::nullopt;
    }
    const Block owned(id);
    playlist.node_id = id;
    return playlist;
}

} // namespace vantro::mpris
