// A queue that is being changed, before the player is told.
#ifndef VANTRO_BRIDGES_MPD_QUEUE_DRAFT_H
#define VANTRO_BRIDGES_MPD_QUEUE_DRAFT_H

#include <cstdint>
#include <optional>
#include <vector>

#include "bridges/mpd/queue.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {

// Clients change the queue song by song, in long command lists. Each change of the player's session
// costs as much as the session is long, so changes that follow each other are made here, and given
// to the player together. Positions and ranges are the caller's to check.
class QueueDraft {
  public:
    explicit QueueDraft(const Queue &queue);

    uint32_t size() const { return static_cast<uint32_t>(order_.size()); }
    std::optional<uint32_t> position_of(uint32_t id) const;

    void append(uint32_t id, NodeKey key);
    void erase(const Range &range);
    // The range begins at that place of what is left without it.
    void move(const Range &range, uint32_t to);
    void swap(uint32_t one, uint32_t other);
    void shuffle(const Range &range);

    // Songs of the queue as it was.
    uint32_t size_before() const { return static_cast<uint32_t>(before_->size()); }
    const QueueEntries &before() const { return before_; }
    // Songs that are new.
    const std::vector<QueueEntry> &added() const { return added_; }
    // Whether the new songs stand after the queue as it was.
    bool only_appended() const { return only_appended_; }

    // The entries in their order, each as its place before: new ones count on from the end.
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
