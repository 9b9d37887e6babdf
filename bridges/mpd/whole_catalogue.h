// A copy of all songs, for filters that have to examine each of them.
#ifndef VANTRO_BRIDGES_MPD_WHOLE_CATALOGUE_H
#define VANTRO_BRIDGES_MPD_WHOLE_CATALOGUE_H

#include <cstddef>
#include <memory>
#include <vector>

#include <vantro/vantro.hpp>

#include "bridges/mpd/node_walk.h"
#include "bridges/mpd/song.h"

namespace vantro::mpd {

class Catalogue;

// The songs are in the order of the directories. They are read one by one when a filter first needs
// them, and kept until the catalogue changes; a catalogue that is too large is not kept.
class WholeCatalogue {
  public:
    using Songs = std::shared_ptr<const std::vector<SongPtr>>;

    enum class State { unread, reading, complete, too_large };

    State state() const { return state_; }

    // Reads the next entry, unless the copy is complete or too large. @return the resulting state.
    // @throws Ack; the songs read so far stay.
    State read_on(Player &player, Catalogue &catalogue);

    // Valid if the copy is complete.
    const Songs &songs() const { return songs_; }

    void clear() { *this = {}; }

  private:
    struct Folder {
        int32_t source;
        NodeWalk walk;
    };

    void begin(Player &player, Catalogue &catalogue);
    void keep(const SongPtr &song);
    void give_up();

    State state_ = State::unread;
    std::vector<Folder> folders_; // The last one comes first: of each source, or in one of them.
    std::vector<SongPtr> read_;
    size_t bytes_ = 0;
    Songs songs_;
};

} // namespace vantro::mpd

#endif
