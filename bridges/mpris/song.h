// The metadata of a song, in the form for the bus.
#ifndef VANTRO_BRIDGES_MPRIS_SONG_H
#define VANTRO_BRIDGES_MPRIS_SONG_H

#include <cstdint>
#include <string>
#include <string_view>

#include <vantro/vantro.hpp>

namespace vantro::mpris {

// Empty texts and zeros mean "unknown". The bus accepts every text.
struct Song {
    std::string path; // The track's place; no_track if there is none.
    int64_t length_us = 0;
    std::string title;
    std::string artist;
    std::string album;
    std::string album_artist;
    std::string composer;
    std::string genre;
    std::string created; // A year, or a whole date.
    std::string url;
    std::string art_url; // Of a file that this process can read.
    int32_t disc = 0;
    int32_t track = 0;
    int32_t beats_per_minute = 0;

    bool operator==(const Song &) const = default;
};

// A text that the bus accepts: bytes that are not UTF-8, and code points that are not characters,
// are replaced by U+FFFD.
std::string clean_text(std::string_view text);

// The song of an event. An event cuts long texts.
Song song_of(const Metadata *metadata);

// Queries the service for the values of a song, and replaces those in `song`. Blocks for the
// answer; if none comes, `song` does not change.
void complete(Song &song, Player &player, int32_t ms_id, const std::string &node_id);

} // namespace vantro::mpris

#endif
