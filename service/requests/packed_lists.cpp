#include "service/requests/packed_lists.h"

#include <algorithm>
#include <new>
#include <utility>

namespace vantro::service::requests {

std::span<const unsigned char> PackedNodes::part(size_t from, size_t to) const {
    const size_t begin = from == first ? 0 : ends[from - first - 1];
    return std::span(bytes).subspan(begin, ends[to - first - 1] - begin);
}

std::shared_ptr<const PackedNodes> PackedLists::find(const std::string &list, size_t first,
                                                     size_t last) {
    const MutexLock guard(mutex_);
    const auto found = std::find_if(kept_.begin(), kept_.end(), [&](const Kept &each) {
        return each.list == list && each.nodes->holds(first, last);
    });
    if (found == kept_.end()) {
        return nullptr;
    }
    std::rotate(found, found + 1, kept_.end());
    return kept_.back().nodes;
}

void PackedLists::keep(const std::string &list, size_t first, std::span<const unsigned char> bytes,
                       const std::vector<uint32_t> &ends) noexcept {
    size_t total = bytes.size() + ends.size() * sizeof(uint32_t);
    if (total > bytes_max) {
        return;
    }
    try {
        PackedNodes made = {first, Bytes(bytes.begin(), bytes.end()), ends};
        Kept kept = {list, std::make_shared<const PackedNodes>(std::move(made))};
        const MutexLock guard(mutex_);
        auto oldest = kept_.end(); // the oldest entry for which there is room
        while (oldest != kept_.begin() && total + (oldest - 1)->nodes->size() <= bytes_max) {
            total += (--oldest)->nodes->size();
        }
        kept_.erase(kept_.begin(), oldest);
        kept_.push_back(std::move(kept));
    } catch (const std::bad_alloc &) {
        // The listing is made again at the next request.
    }
}

} // namespace vantro::service::requests
