// Pending changes of a queue that the player does not have yet.
#ifndef VANTRO_BRIDGES_MPD_QUEUE_DRAFT_H
#define VANTRO_BRIDGES_MPD_QUEUE_DRAFT_H

#include <cstdint>
#include <optional>
#include <vector>

#include "bridges/mpd/queue.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {

// Clients change the queue song by song, in long command lists. The cost of each change of the
// player's session is proportional to its length, so consecutive changes are collected here, and
// sent to the player together. The caller checks positions and ranges.
class QueueDraft {
  public:
    explicit QueueDraft(const Queue &queue);

    uint32_t size() const { return static_cast<uint32_t>(order_.size()); }
    std::optional<uint32_t> position_of(uint32_t id) const;

    void append(uint32_t id, NodeKey key);
    void erase(const Range &range);
    // Moves the range to that place in the queue without the range.
    void move(const Range &range, uint32_t to);
    void swap(uint32_t one, uint32_t other);
    void shuffle(const Range &range);

    // The number of songs before the changes.
    uint32_t size_before() const { return static_cast<uint32_t>(before_->size()); }
    const QueueEntries &before() const { return before_; }
    // The new songs.
    const std::vector<QueueEntry> &added() const { return added_; }
    // Whether the only change is that songs were added at the end.
    bool only_appended() const { return only_appended_; }

    // The entries in their new order, each by its old place; new songs have the places after the
    // old ones.
    const std::vector<uint32_t> &order() const { return order_; }
    const QueueEntry &entry(uint32_t place) const {
        return place < before_->size() ? (*before_)[place] : added_[place - before_->size()];
    }

  private:
    QueueEntries before_;
    std::vector<QueueEntry> added_;
    std::vector<uint32_t> order_;
    bool only_appended_ = true;
};

} // namespace vantro::mpd

#endif
