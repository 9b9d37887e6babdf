#include "service/playlists/playlist_text.h"

#include <algorithm>

#include <fmt/format.h>

namespace vantro::service::playlists {

namespace {

constexpr std::string_view title_mark = "#EXTINF:";
constexpr std::string_view song_mark = "#EXTVANTRO:";
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

bool is_control(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

std::string one_line(std::string text) {
    std::replace_if(text.begin(), text.end(), is_control, ' ');
    return text;
}

// The path, or, if a line cannot contain it, its URI.
std::string entry_of(const std::string &path) {
    if (std::none_of(path.begin(), path.end(), is_control)) {
        return path;
    }
    std::string uri = "file://";
    for (const char c : path) {
        uri += is_control(c) || c == '%' ? fmt::format("%{:02X}", static_cast<unsigned char>(c))
                                         : std::string(1, c);
    }
    return uri;
}

bool take(std::string_view &line, std::string_view mark) {
    if (line.substr(0, mark.size()) != mark) {
        return false;
    }
    line.remove_prefix(mark.size());
    return true;
}

} // namespace

std::string write_playlist(const std::vector<catalogue::LocatedSong> &songs) {
    std::string text = "#EXTM3U\n";
    for (const catalogue::LocatedSong &song : songs) {
        if (song.uid.empty()) {
            continue;
        }
        const std::string title =
            song.artist.empty() ? song.title : fmt::format("{} - {}", song.artist, song.title);
        text += fmt::format("{}{},{}\n{}{}/{}\n{}\n", title_mark, (song.duration_ms + 500) / 1000,
                            one_line(title), song_mark, song.uid, song.node, entry_of(song.path));
    }
    return text;
}

std::vector<Entry> read_playlist(std::string_view text, size_t most) {
    take(text, byte_order_mark);
    std::vector<Entry> entries;
    Entry next;
    while (!text.empty() && entries.size() < most) {
        std::string_view line = text.substr(0, text.find_first_of("\r\n"));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (take(line, title_mark)) {
            const size_t comma = line.find(',');
            next.title = comma == line.npos ? line : line.substr(comma + 1);
        } else if (take(line, song_mark)) {
            const size_t slash = line.find('/');
            next.song.uid = line.substr(0, slash);
            next.song.node = slash == line.npos ? std::string_view() : line.substr(slash + 1);
        } else if (!line.empty() && line.front() != '#') {
            next.song.entry = line;
            entries.push_back(next);
            next = {};
        }
    }
    return entries;
}

} // namespace vantro::service::playlists
