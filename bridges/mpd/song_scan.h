// All songs of the catalogue that a filter lets pass, one after the other.
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

// It goes through the whole catalogue if that is known, or small enough to be read and kept. If
// not, it reads lists that come with what most filters ask for; only for the songs that may match,
// and only if more of them is needed, the service is asked for each one.
class SongScan {
  public:
    enum class Order { any, folders };

    // @param needs how much of a song that matches is needed.
    // @param order `folders`: songs come as directories list them, unless the service is asked for
    // words of the filter; see is_in_order(). `any` may be quicker.
    SongScan(Filter filter, Filter::Knowledge needs, Order order);

    // Whether songs come as directories list them. To be asked once one has come.
    bool is_in_order() const { return all_ || (order_ == Order::folders && !term_); }

    // Looks at one more song. @return it, if it matches. @throws Ack.
    SongPtr next(Player &player, Catalogue &catalogue);

    // Whether all songs were looked at.
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
    const std::optional<std::string> term_; // What the service is asked for.
    bool begun_ = false;
    bool reading_ = false; // The whole catalogue is not complete yet.
    WholeCatalogue::Songs all_;
    size_t at_ = 0;                                   // The next of them.
    std::vector<std::pair<int32_t, NodeWalk>> walks_; // The last one comes first; of each source,
                                                      // or of a folder and those in it.
};

} // namespace vantro::mpd

#endif
