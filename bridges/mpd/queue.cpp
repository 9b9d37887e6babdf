#include "bridges/mpd/queue.h"

#include <algorithm>
#include <functional>
#include <string>
#include <unordered_map>

namespace vantro::mpd {
namespace {

std::string text_of(const NodeKey &key) {
    return std::to_string(key.source) + ':' + key.id;
}

} // namespace

uint32_t Queue::take_id() {
    // Ids are positive numbers of 31 bits for clients that keep them as signed ones.
    const uint32_t id = next_id_;
    next_id_ = next_id_ == INT32_MAX ? 1 : next_id_ + 1;
    return id;
}

void Queue::replace(uint64_t tsid, std::vector<NodeKey> tracks) {
    tsid_ = tsid;
    const std::vector<QueueEntry> &before = *entries_;
    const size_t shorter = std::min(before.size(), tracks.size());
    size_t front = 0;
    while (front < shorter && before[front].key == tracks[front]) {
        ++front;
    }
    if (front == before.size() && front == tracks.size()) {
        return;
    }
    size_t back = 0;
    while (back < shorter - front &&
           before[before.size() - 1 - back].key == tracks[tracks.size() - 1 - back]) {
        ++back;
    }
    // The songs between the two, by node; if a song occurs several times, the first one comes
    // first.
    std::unordered_map<std::string, std::vector<uint32_t>> loose;
    for (size_t i = before.size() - back; i > front; --i) {
        loose[text_of(before[i - 1].key)].push_back(before[i - 1].id);
    }
    ++version_;
    auto after = std::make_shared<std::vector<QueueEntry>>();
    after->reserve(tracks.size());
    for (size_t i = 0; i < tracks.size(); ++i) {
        QueueEntry entry;
        if (i < front) {
            entry.id = before[i].id;
        } else if (i >= tracks.size() - back) {
            entry.id = before[i + before.size() - tracks.size()].id;
        } else if (const auto found = loose.find(text_of(tracks[i]));
                   found != loose.end() && !found->second.empty()) {
            entry.id = found->second.back();
            found->second.pop_back();
        } else {
            entry.id = take_id();
        }
        const bool same = i < before.size() && before[i].id == entry.id;
        entry.changed = same ? before[i].changed : version_;
        entry.key = std::move(tracks[i]);
        after->push_back(std::move(entry));
    }
    entries_ = std::move(after);
}

void Queue::take(uint64_t tsid, std::vector<QueueEntry> entries) {
    tsid_ = tsid;
    ++version_;
    for (size_t i = 0; i < entries.size(); ++i) {
        const bool same = i < entries_->size() && (*entries_)[i].id == entries[i].id;
        entries[i].changed = same ? (*entries_)[i].changed : version_;
    }
    entries_ = std::make_shared<const std::vector<QueueEntry>>(std::move(entries));
}

std::optional<uint32_t> Queue::position_of(uint32_t id) const {
    const auto found = std::find_if(entries_->begin(), entries_->end(),
                                    [id](const QueueEntry &entry) { return entry.id == id; });
    return found == entries_->end()
               ? std::nullopt
               : std::optional(static_cast<uint32_t>(found - entries_->begin()));
}

} // namespace vantro::mpd
