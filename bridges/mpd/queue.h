// The tracks of a player's session, with the ids and the version of the protocol.
#ifndef VANTRO_BRIDGES_MPD_QUEUE_H
#define VANTRO_BRIDGES_MPD_QUEUE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "bridges/mpd/song.h"

namespace vantro::mpd {

struct QueueEntry {
    uint32_t id = 0;      // Stays with the song as long as it is in the queue.
    uint32_t changed = 0; // The version in which this place got this song.
    NodeKey key;
};

// The entries of one version. They are immutable, so an answer that is being made can keep them.
using QueueEntries = std::shared_ptr<const std::vector<QueueEntry>>;

class Queue {
  public:
    const QueueEntries &entries() const { return entries_; }
    uint32_t size() const { return static_cast<uint32_t>(entries_->size()); }
    uint32_t version() const { return version_; }
    uint64_t tsid() const { return tsid_; }

    // Sets the tracks of a session. Tracks that stay or move keep their ids.
    void replace(uint64_t tsid, std::vector<NodeKey> tracks);

    // Sets the entries of a session, with known ids; their `changed` is ignored.
    void take(uint64_t tsid, std::vector<QueueEntry> entries);

    // An unused id.
    uint32_t take_id();

    std::optional<uint32_t> position_of(uint32_t id) const;

  private:
    QueueEntries entries_ = std::make_shared<const std::vector<QueueEntry>>();
    uint32_t version_ = 1;
    uint32_t next_id_ = 1;
    uint64_t tsid_ = 0;
};

} // namespace vantro::mpd

#endif
