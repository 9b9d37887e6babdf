#include "bridges/mpd/node_walk.h"

#include <cerrno>

#include <vantro/protocol.h>

#include "bridges/mpd/service_call.h"

namespace vantro::mpd {
namespace {

// Short, since all clients wait while a page is made.
constexpr int32_t page_entries = 250;
static_assert(page_entries <= VANTRO_METADATA_PAGE_MAX);

} // namespace

void NodeWalk::fetch(Player &player) {
    MediaNode *nodes = nullptr;
    Metadata *metadata = nullptr;
    int count = page_entries;
    VantroHandle *const handle = player.handle();
    const int result = term_ ? vantro_search_metadata(handle, node_.source, nullptr, term_->c_str(),
                                                      offset_, &count, &nodes, &metadata)
                       : described_ ? vantro_browse_metadata(handle, node_.source, node_.id.c_str(),
                                                             offset_, &count, &nodes, &metadata)
                                    : vantro_browse(handle, node_.source, node_.id.c_str(), offset_,
                                                    &count, &nodes);
    at_ = 0;
    if (result != 0) {
        const Failure failure = Failure::last();
        if (failure.why() != Reason::refused || failure.number != ENOENT) {
            throw_ack(failure);
        }
        count = 0;
    }
    if (described_) {
        page_ = DescribedList(nodes, metadata, count);
    } else {
        plain_ = List<MediaNode>(nodes, count);
    }
    offset_ += count;
    at_end_ = count < page_entries;
}

DescribedNode NodeWalk::next(Player &player) {
    if (at_ == size()) {
        if (at_end_) {
            return {nullptr, nullptr};
        }
        fetch(player);
        if (size() == 0) {
            return {nullptr, nullptr};
        }
    }
    const size_t at = at_++;
    return described_ ? page_[at] : DescribedNode{&plain_[at], nullptr};
}

} // namespace vantro::mpd
