// Files of music and playlists, as the scan reads them. The first byte chooses the file's name; the
// rest is the file. Whatever it holds, the texts are valid and bounded.
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/support.h"
#include "service/catalogue/files/cue_sheet.h"
#include "service/catalogue/files/music_root.h"
#include "service/catalogue/files/picture_head.h"
#include "service/catalogue/files/playlist_file.h"
#include "service/catalogue/files/song_file.h"

namespace {

using vantro::fuzz::require;

constexpr std::array names = {
    "a.mp3", "a.flac", "a.ogg", "a.opus", "a.m4a", "a.wav", "a.wv",  "a.ape", "a.aiff", "a.wma",
    "a.mpc", "a.m3u8", "a.m3u", "a.pls",  "a.spx", "a.tta", "a.mod", "a.s3m", "a.it",   "a.jpeg",
    "a.dsf", "a.aac",  "a.ac3", "a.mka",  "a.caf", "a.au",  "a.xm",  "a.mp2", "a.xspf", "a.cue"};

struct Directory {
    std::string path = "/dev/shm/fuzz-music-XXXXXX";
    vantro::service::catalogue::MusicRoot root{mkdtemp(path.data())};
    ~Directory() { std::filesystem::remove_all(path); }
};

void read_as_song(const Directory &directory, const std::string &name, size_t size) {
    using namespace vantro::service::catalogue;
    SongFile song;
    if (!read_song(directory.root, name, name, song)) {
        require(song.size == static_cast<int64_t>(size) && song.duration_ms >= 0);
        // Each value ends within the texts.
        require(song.tags.packed().empty() || song.tags.packed().back() == '\0');
        picture_head(song.picture);
    }
    check_song(directory.path, name);
}

void read_as_playlist(const Directory &directory, const std::string &name) {
    using namespace vantro::service::catalogue;
    PlaylistFile playlist;
    read_playlist(directory.root, name, name, playlist);
    require(playlist.entries.size() <= playlist_entries_max);
    for (const std::string &entry : playlist.entries) {
        const auto found = resolve_entry(entry, "folder", "/music");
        require(!found ||
                (found->front() != '/' && ("/" + *found + "/").find("/../") == found->npos));
    }
}

void read_as_sheet(const Directory &directory, const std::string &name) {
    using namespace vantro::service::catalogue;
    const auto sheet = read_cue_sheet(directory.root, name, name);
    FoundSong whole;
    whole.song.duration_ms = 3'600'000;
    const auto tracks = sheet ? cut_by_sheet(whole, *sheet) : std::nullopt;
    int64_t at = 0;
    for (size_t i = 0; tracks && i < tracks->size(); ++i) {
        const SongFile &song = (*tracks)[i].song;
        require(song.start_us >= at && song.duration_ms >= 0);
        require(i + 1 == tracks->size() ? song.stop_us == 0 : song.stop_us > song.start_us);
        at = song.stop_us;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const Directory directory;
    if (size < 1) {
        return 0;
    }
    const std::string name = names[data[0] % names.size()];
    const std::string path = directory.path + "/" + name;
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(data + 1), static_cast<std::streamsize>(size - 1));
    if (vantro::service::catalogue::has_playlist_name(name)) {
        read_as_playlist(directory, name);
    } else if (vantro::service::catalogue::has_cue_name(name)) {
        read_as_sheet(directory, name);
    } else {
        read_as_song(directory, name, size - 1);
    }
    std::filesystem::remove(path);
    return 0;
}
