// Songs that were asked for lately.
#ifndef VANTRO_BRIDGES_MPD_SONG_CACHE_H
#define VANTRO_BRIDGES_MPD_SONG_CACHE_H

#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>

#include "bridges/mpd/song.h"

namespace vantro::mpd {

// Bounded by bytes: what was not asked for since half of them was used is forgotten.
class SongCache {
  public:
    SongPtr find(const NodeKey &key);
    SongPtr find_uri(const std::string &uri);
    void add(const SongPtr &song);
    void clear();

    // The bytes that a song takes, with what finds it.
    static size_t size_of(const Song &song);

  private:
    // Both halves. Their songs take so much at most, and as much again for what holds them.
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
