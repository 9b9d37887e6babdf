// All songs, for filters that have to look at each of them.
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

// In the order of the directories. Read when a filter first needs it, song by song, and kept until
// the catalogue changes; one that is too large is not kept.
class WholeCatalogue {
  public:
    using Songs = std::shared_ptr<const std::vector<SongPtr>>;

    enum class State { unread, reading, complete, too_large };

    State state() const { return state_; }

    // Reads one entry more, unless it is complete or too large. @return the state then.
    // @throws Ack; what was read so far stays.
    State read_on(Player &player, Catalogue &catalogue);

    // Of a complete one.
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
