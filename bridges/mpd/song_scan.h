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

// It reads lists that come with what most filters ask for. Only for the songs that may match, and
// only if more of them is needed, the service is asked for each one.
class SongScan {
  public:
    enum class Order { any, folders };

    // @param needs how much of a song that matches is needed.
    // @param order `folders`: songs come as directories list them, if the service is not asked for
    // words of the filter; see is_in_order(). `any` is quicker.
    SongScan(Filter filter, Filter::Knowledge needs, Order order);

    // Whether songs come as directories list them.
    bool is_in_order() const { return order_ == Order::folders && !term_; }

    // Looks at one more song. @return it, if it matches. @throws Ack.
    SongPtr next(Player &player, Catalogue &catalogue);

    // Whether all songs were looked at.
    bool at_end() const { return begun_ && walks_.empty(); }

  private:
    void begin(Player &player, Catalogue &catalogue);
    void enter(const NodeKey &folder);

    const Filter filter_;
    const Filter::Knowledge needs_;
    const Order order_;
    const std::optional<std::string> term_; // What the service is asked for.
    bool begun_ = false;
    std::vector<std::pair<int32_t, NodeWalk>> walks_; // The last one comes first; of each source,
                                                      // or of a folder and those in it.
};

} // namespace vantro::mpd

#endif
