// Playlist files: .m3u, .m3u8, .pls and .xspf.
#ifndef VANTRO_SERVICE_CATALOGUE_FILES_PLAYLIST_FILE_H
#define VANTRO_SERVICE_CATALOGUE_FILES_PLAYLIST_FILE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/catalogue/files/music_root.h"
#include "service/error.h"

namespace vantro::service::catalogue {

// Largest playlist file, in bytes, and most entries of one. No real playlist is larger.
inline constexpr size_t playlist_bytes_max = 4 * 1024 * 1024;
inline constexpr size_t playlist_entries_max = 100'000;

bool has_playlist_name(std::string_view name);

// The entries of an .m3u, .m3u8 or .pls file in their order, unchanged. Never fails: a malformed
// line is skipped.
std::vector<std::string> parse_playlist(std::string_view name, std::string_view bytes);

// The path, below `root`, of the file that an entry names. The playlist is in `folder`, a path
// below `root`. Nothing if the entry leads out of `root`, or does not name a file.
std::optional<std::string> resolve_entry(std::string_view entry, std::string_view folder,
                                         std::string_view root);

struct PlaylistFile {
    int64_t modified_ns = 0;
    int64_t size = 0;
    std::vector<std::string> entries;
};

// Reads the file at `path` below the root, with the name `name`. Returns an error if that fails.
std::optional<Error> read_playlist(const MusicRoot &root, const std::string &path,
                                   const std::string &name, PlaylistFile &playlist);

} // namespace vantro::service::catalogue

#endif
