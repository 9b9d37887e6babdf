#include "bridges/mpd/queue_draft.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <utility>

namespace vantro::mpd {

QueueDraft::QueueDraft(const Queue &queue) : before_(queue.entries()), order_(queue.size()) {
    std::iota(order_.begin(), order_.end(), 0u);
}

std::optional<uint32_t> QueueDraft::position_of(uint32_t id) const {
    const auto found = std::find_if(order_.begin(), order_.end(),
                                    [&](uint32_t place) { return entry(place).id == id; });
    return found == order_.end() ? std::nullopt
                                 : std::optional(static_cast<uint32_t>(found - order_.begin()));
}

void QueueDraft::append(uint32_t id, NodeKey key) {
    order_.push_back(static_cast<uint32_t>(before_->size() + added_.size()));
    QueueEntry entry;
    entry.id = id;
    entry.key = std::move(key);
    added_.push_back(std::move(entry));
}

void QueueDraft::erase(const Range &range) {
    order_.erase(order_.begin() + range.begin, order_.begin() + range.end);
    only_appended_ = false;
}

void QueueDraft::move(const Range &range, uint32_t to) {
    const auto begin = order_.begin();
    if (to < range.begin) {
        std::rotate(begin + to, begin + range.begin, begin + range.end);
    } else {
        std::rotate(begin + range.begin, begin + range.end, begin + to + (range.end - range.begin));
    }
    only_appended_ = false;
}

void QueueDraft::swap(uint32_t one, uint32_t other) {
    std::swap(order_.at(one), order_.at(other));
    only_appended_ = false;
}

void QueueDraft::shuffle(const Range &range) {
    std::mt19937 generator(std::random_device{}());
    std::shuffle(order_.begin() + range.begin, order_.begin() + range.end, generator);
    only_appended_ = false;
}

} // namespace vantro::mpd
