// The folder of saved playlists, with a file NAME.m3u8 for each. Users may put files there too.
//
// A file is replaced as a whole: after a crash it is either the old one or the new one. Only
// regular files with a valid playlist name are read, and links are not followed.
#ifndef VANTRO_SERVICE_PLAYLISTS_PLAYLIST_FOLDER_H
#define VANTRO_SERVICE_PLAYLISTS_PLAYLIST_FOLDER_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/locks.h"
#include "service/error.h"

namespace vantro::service::playlists {

// Longest name, in bytes: with the ending, and the additions for a temporary file, it stays below
// the 255 bytes that file systems allow.
inline constexpr size_t name_max = 200;

// Most playlists, and most bytes of all of them: any client may save playlists.
inline constexpr size_t playlists_max = 1000;
inline constexpr int64_t folder_bytes_max = int64_t{256} << 20;

// Most entries of a playlist, and most bytes of its file: it is read as a whole.
inline constexpr size_t entries_max = 100'000;
inline constexpr int64_t file_bytes_max = int64_t{64} << 20;

// Whether a playlist may have this name: valid UTF-8 of 1 to name_max bytes, with no slash, no
// control characters and no dot at the start.
bool is_playlist_name(std::string_view name);

// Identifies one version of a file.
struct Stamp {
    int64_t modified_ns = 0;
    int64_t size = 0;
    uint64_t inode = 0;
    bool operator==(const Stamp &) const = default;
};

struct PlaylistFile {
    std::string name; // of the playlist
    Stamp stamp;
};

class PlaylistFolder {
  public:
    explicit PlaylistFolder(std::filesystem::path path) : path_(std::move(path)) {}

    const std::filesystem::path &path() const { return path_; }

    // At most playlists_max, by name. Empty if there is no folder yet.
    Result<std::vector<PlaylistFile>> list() const;

    // Nothing if there is no such file.
    std::optional<Stamp> look(const std::string &name) const;

    // The bytes of a file, and its stamp. An error of kind `gone` if there is none.
    Result<std::string> read(const std::string &name, Stamp &stamp) const;

    // Writes a file, and makes the folder if it is missing. Fails with EEXIST if a file of that
    // name exists, unless `replace`; with EDQUOT beyond the limits above; or with an error of the
    // system. Writers wait for each other.
    std::optional<Error> write(const std::string &name, const std::string &text, bool replace)
        EXCLUDES(writing_);
    std::optional<Error> remove(const std::string &name) EXCLUDES(writing_);

  private:
    std::filesystem::path file_of(const std::string &name) const;
    std::optional<Error> check_room(const std::string &name, size_t bytes, bool replace) const;

    const std::filesystem::path path_;
    Mutex writing_;
};

} // namespace vantro::service::playlists

#endif
