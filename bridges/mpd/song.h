// A song with the data that the protocol shows.
#ifndef VANTRO_BRIDGES_MPD_SONG_H
#define VANTRO_BRIDGES_MPD_SONG_H

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "bridges/mpd/tags.h"

namespace vantro::mpd {

// A node of a media source. Nodes that have left the catalogue have an empty id.
struct NodeKey {
    int32_t source = 0;
    std::string id;

    bool operator==(const NodeKey &) const = default;
};

struct Song {
    NodeKey key;
    std::string uri;
    std::array<std::string, tag_count> tags;
    int32_t duration_ms = 0;
    int64_t modified = 0; // Seconds since 1970; 0 if unknown.
    std::string bit_rate; // These three are the catalogue's texts, or empty.
    std::string sample_rate;
    std::string channels;
    std::string codec;
    std::string artwork; // URI of the cover, or empty.

    const std::string &tag(Tag which) const {
        static const std::string none;
        return which == Tag::absent ? none : tags[index_of(which)];
    }

    // The value for grouping and filtering: the artist replaces a missing album artist.
    const std::string &tag_or_fallback(Tag which) const {
        const std::string &value = tag(which);
        return value.empty() && which == Tag::album_artist ? tag(Tag::artist) : value;
    }
};

using SongPtr = std::shared_ptr<const Song>;

} // namespace vantro::mpd

#endif
