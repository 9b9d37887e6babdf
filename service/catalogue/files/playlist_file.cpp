#include "service/catalogue/files/playlist_file.h"

#include <algorithm>
#include <charconv>

#include "service/catalogue/files/file_stream.h"
#include "service/catalogue/files/xspf_file.h"

namespace vantro::service::catalogue {

namespace {

std::string lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return result;
}

std::string_view ending_of(std::string_view name) {
    const size_t dot = name.rfind('.');
    return dot == std::string_view::npos ? std::string_view() : name.substr(dot + 1);
}

// The path in a file URI, with each %XX decoded. Nothing for other schemes and for other hosts.
std::optional<std::string> file_of_uri(std::string_view entry) {
    constexpr std::string_view scheme = "file://";
    if (lower(entry.substr(0, scheme.size())) != scheme) {
        return std::nullopt;
    }
    entry.remove_prefix(scheme.size());
    if (lower(entry.substr(0, 10)) == "localhost/") {
        entry.remove_prefix(9);
    }
    if (entry.empty() || entry.front() != '/') {
        return std::nullopt;
    }
    std::string path;
    for (size_t at = 0; at < entry.size(); ++at) {
        unsigned byte = 0;
        if (entry[at] == '%' && at + 2 < entry.size() &&
            std::from_chars(entry.data() + at + 1, entry.data() + at + 3, byte, 16).ptr ==
                entry.data() + at + 3) {
            path += static_cast<char>(byte);
            at += 2;
        } else {
            path += entry[at];
        }
    }
    return path;
}

bool has_scheme(std::string_view entry) {
    const size_t colon = entry.find("://");
    return colon != std::string_view::npos && colon > 1 &&
           std::all_of(entry.begin(), entry.begin() + static_cast<ptrdiff_t>(colon),
                       [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); });
}

// Appends the components of `path` to `pieces`, and removes one for each "..". False if that leads
// out.
bool walk(std::string_view path, std::vector<std::string_view> &pieces) {
    while (!path.empty()) {
        const std::string_view piece = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), piece.size() + 1));
        if (piece.empty() || piece == ".") {
            continue;
        }
        if (piece != "..") {
            pieces.push_back(piece);
            continue;
        }
        if (pieces.empty()) {
            return false;
        }
        pieces.pop_back();
    }
    return true;
}

} // namespace

bool has_playlist_name(std::string_view name) {
    const std::string ending = lower(ending_of(name));
    return ending == "m3u" || ending == "m3u8" || ending == "pls" || ending == "xspf";
}

std::vector<std::string> parse_playlist(std::string_view name, std::string_view bytes) {
    const bool pls = lower(ending_of(name)) == "pls";
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (bytes.substr(0, 3) == byte_order_mark) {
        bytes.remove_prefix(3);
    }
    std::vector<std::string> entries;
    while (!bytes.empty() && entries.size() < playlist_entries_max) {
        std::string_view line = bytes.substr(0, bytes.find_first_of("\r\n"));
        bytes.remove_prefix(std::min(bytes.size(), line.size() + 1));
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
            line.remove_prefix(1);
        }
        if (pls) { // FileN=ENTRY; N is ignored, since the lines are in order
            const size_t sign = line.find('=');
            if (sign == std::string_view::npos || lower(line.substr(0, 4)) != "file") {
                continue;
            }
            line.remove_prefix(sign + 1);
        } else if (!line.empty() && line.front() == '#') {
            continue;
        }
        if (!line.empty() && line.find('\0') == std::string_view::npos) {
            entries.emplace_back(line);
        }
    }
    return entries;
}

std::optional<std::string> resolve_entry(std::string_view entry, std::string_view folder,
                                         std::string_view root) {
    std::string text(entry);
    if (has_scheme(entry)) {
        std::optional<std::string> file = file_of_uri(entry);
        if (!file) {
            return std::nullopt;
        }
        text = std::move(*file);
    } else if (entry.find('/') == std::string_view::npos) {
        // Written on a system that separates names by backslashes.
        std::replace(text.begin(), text.end(), '\\', '/');
    }

    std::vector<std::string_view> pieces;
    if (!text.empty() && text.front() == '/') {
        std::vector<std::string_view> above;
        if (!walk(text, pieces) || !walk(root, above) || pieces.size() <= above.size() ||
            !std::equal(above.begin(), above.end(), pieces.begin())) {
            return std::nullopt;
        }
        pieces.erase(pieces.begin(), pieces.begin() + static_cast<ptrdiff_t>(above.size()));
    } else if (!walk(folder, pieces) || !walk(text, pieces) || pieces.empty()) {
        return std::nullopt;
    }
    std::string path;
    for (const std::string_view piece : pieces) {
        path.append(path.empty() ? "" : "/").append(piece);
    }
    return path;
}

std::optional<Error> read_playlist(const MusicRoot &root, const std::string &path,
                                   const std::string &name, PlaylistFile &playlist) {
    FileStream stream(root, path, name);
    playlist.modified_ns =
        stream.status().st_mtim.tv_sec * int64_t{1'000'000'000} + stream.status().st_mtim.tv_nsec;
    playlist.size = stream.status().st_size;
    const bool empty = S_ISREG(stream.status().st_mode) && playlist.size == 0;
    if (stream.failure() && !empty) {
        return stream.failure();
    }
    if (playlist.size > static_cast<int64_t>(playlist_bytes_max)) {
        return Error::damage(Error::Origin::music, "is too large for a playlist");
    }
    const TagLib::ByteVector bytes = stream.readBlock(playlist_bytes_max);
    if (stream.failure() && !empty) {
        return stream.failure();
    }
    const std::string_view text(bytes.data(), bytes.size());
    if (!empty && lower(ending_of(name)) == "xspf") {
        return parse_xspf(text, playlist_entries_max, playlist.entries);
    }
    playlist.entries = parse_playlist(name, text);
    return std::nullopt;
}

} // namespace vantro::service::catalogue
