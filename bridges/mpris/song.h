// What is known of a song, in the form of a media player on the bus.
#ifndef VANTRO_BRIDGES_MPRIS_SONG_H
#define VANTRO_BRIDGES_MPRIS_SONG_H

#include <cstdint>
#include <string>
#include <string_view>

#include <vantro/vantro.hpp>

namespace vantro::mpris {

// Empty texts and zeros mean "not known". The bus accepts every text.
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

// A text without what the bus refuses: bytes that are no UTF-8, and code points that are no
// characters. U+FFFD takes their place.
std::string clean_text(std::string_view text);

// The song as an event has it. An event cuts long texts.
Song song_of(const Metadata *metadata);

// Asks the service for the values of a song, and replaces those that `song` has. Blocks for the
// answer; if none comes the song stays as it is.
void complete(Song &song, Player &player, int32_t ms_id, const std::string &node_id);

} // namespace vantro::mpris

#endif
