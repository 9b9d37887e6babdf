// Lists of the catalogue, fetched page by page.
#ifndef VANTRO_BRIDGES_MPD_NODE_WALK_H
#define VANTRO_BRIDGES_MPD_NODE_WALK_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include <vantro/vantro.hpp>

#include "bridges/mpd/song.h"

namespace vantro::mpd {

// One list: the entries of a node, or the results of a search. Reading may pause between two
// entries for any time, and then continues at its place.
class NodeWalk {
  public:
    // @param described whether entries come with their metadata.
    static NodeWalk below(NodeKey node, bool described) {
        return NodeWalk(std::move(node), std::nullopt, described);
    }
    static NodeWalk found(int32_t source, std::string term) {
        return NodeWalk({source, ""}, std::move(term), true);
    }

    // The next entry, which lives until the next call; at the end both pointers are NULL, and
    // without metadata the second one is always NULL. A node that does not exist has no entries.
    // @throws Ack.
    DescribedNode next(Player &player);

    // Entries that were fetched already.
    size_t ready() const { return size() - at_; }

  private:
    NodeWalk(NodeKey node, std::optional<std::string> term, bool described)
        : node_(std::move(node)), term_(std::move(term)), described_(described) {}

    size_t size() const { return described_ ? page_.size() : plain_.size(); }
    void fetch(Player &player);

    NodeKey node_;
    std::optional<std::string> term_;
    bool described_;
    DescribedList page_;
    List<MediaNode> plain_;
    size_t at_ = 0;
    int32_t offset_ = 0;
    bool at_end_ = false;
};

} // namespace vantro::mpd

#endif
