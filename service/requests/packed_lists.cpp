#include "service/requests/packed_lists.h"

#include <algorithm>
#include <new>
#include <utility>

namespace vantro::service::requests {

std::shared_ptr<const Bytes> PackedLists::find(const std::string &name) {
    const MutexLock guard(mutex_);
    const auto found = std::find_if(kept_.begin(), kept_.end(),
                                    [&](const Kept &each) { return each.name == name; });
    if (found == kept_.end()) {
        return nullptr;
    }
    std::rotate(found, found + 1, kept_.end());
    return kept_.back().bytes;
}

void PackedLists::keep(const std::string &name, const unsigned char *bytes, size_t size) noexcept {
    if (size > bytes_max) {
        return;
    }
    try {
        Kept made = {name, std::make_shared<const Bytes>(bytes, bytes + size)};
        const MutexLock guard(mutex_);
        size_t total = size;
        auto first = kept_.end(); // of those for which there is room
        while (first != kept_.begin() && total + (first - 1)->bytes->size() <= bytes_max) {
            total += (--first)->bytes->size();
        }
        kept_.erase(kept_.begin(), first);
        kept_.push_back(std::move(made));
    } catch (const std::bad_alloc &) {
        // It is made once more when it is asked for.
    }
}

} // namespace vantro::service::requests
