// A cache of recently used songs.
#ifndef VANTRO_BRIDGES_MPD_SONG_CACHE_H
#define VANTRO_BRIDGES_MPD_SONG_CACHE_H

#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>

#include "bridges/mpd/song.h"

namespace vantro::mpd {

// Bounded by bytes, in two halves: when one half is full, the songs that were not used since the
// last time are dropped.
class SongCache {
  public:
    SongPtr find(const NodeKey &key);
    SongPtr find_uri(const std::string &uri);
    void add(const SongPtr &song);
    void clear();

    // The bytes that a song takes, including its entry in the index.
    static size_t size_of(const Song &song);

  private:
    // The bound for the bytes of the songs in each half. The containers take about as much again.
    static constexpr size_t half_bytes = 16 * 1024 * 1024;

    struct Half {
        std::unordered_map<std::string, SongPtr> by_node;
        std::unordered_map<std::string, SongPtr> by_uri;
        size_t bytes = 0;
    };

    Half newer_;
    Half older_;
};

} // namespace vantro::mpd

#endif
