// Finds all songs of the catalogue that match a filter, one after the other.
#ifndef VANTRO_BRIDGES_MPD_SONG_SCAN_H
#define VANTRO_BRIDGES_MPD_SONG_SCAN_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/filter.h"
#include "bridges/mpd/node_walk.h"

namespace vantro::mpd {

// If the whole catalogue is cached, or small enough for that, the scan uses that copy. If not, it
// reads lists with metadata, which decide most filters; it requests a single song only if the song
// may match and more of its data is needed.
class SongScan {
  public:
    enum class Order { any, folders };

    // @param needs the required data of a matching song.
    // @param order `folders`: songs come in the order of the directories, unless the service
    //     searches for words of the filter; see is_in_order(). `any` may be faster.
    SongScan(Filter filter, Filter::Knowledge needs, Order order);

    // Whether songs come in the order of the directories. Valid after the first song.
    bool is_in_order() const { return all_ || (order_ == Order::folders && !term_); }

    // Examines the next song. @return the song, if it matches. @throws Ack.
    SongPtr next(Player &player, Catalogue &catalogue);

    // Whether all songs were examined.
    bool at_end() const {
        return begun_ && !reading_ && walks_.empty() && (!all_ || at_ == all_->size());
    }

  private:
    void begin(Player &player, Catalogue &catalogue);
    void begin_walks(Player &player, Catalogue &catalogue);
    void read_on(Player &player, Catalogue &catalogue);
    SongPtr walk_on(Player &player, Catalogue &catalogue);
    void enter(const NodeKey &folder);

    const Filter filter_;
    const Filter::Knowledge needs_;
    const Order order_;
    const std::optional<std::string> term_; // The term for which the service searches.
    bool begun_ = false;
    bool reading_ = false; // The whole catalogue is not complete yet.
    WholeCatalogue::Songs all_;
    size_t at_ = 0;                                   // The index of the next song.
    std::vector<std::pair<int32_t, NodeWalk>> walks_; // The last one comes first; of each source,
                                                      // or of a folder and those in it.
};

} // namespace vantro::mpd

#endif
