// The text of a saved playlist: an extended M3U that any player can read.
//
//     #EXTM3U
//     #EXTINF:212,Artist - Title
//     #EXTVANTRO:UID/NODE
//     /absolute/path/of/the/file.flac
//
// UID and NODE also name the song if its source has moved. A comment belongs to the next entry.
#ifndef VANTRO_SERVICE_PLAYLISTS_PLAYLIST_TEXT_H
#define VANTRO_SERVICE_PLAYLISTS_PLAYLIST_TEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "service/catalogue/store.h"

namespace vantro::service::playlists {

struct Entry {
    catalogue::SongName song;
    std::string_view title; // from the file, "" if it has none
};

// The text with an entry for each known song.
std::string write_playlist(const std::vector<catalogue::LocatedSong> &songs);

// The first `most` entries. They borrow from the text. Never fails: a malformed line is an entry
// without a song.
std::vector<Entry> read_playlist(std::string_view text, size_t most);

} // namespace vantro::service::playlists

#endif
