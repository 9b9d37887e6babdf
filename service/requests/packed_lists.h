// A cache of long listings in their packed form.
#ifndef VANTRO_SERVICE_REQUESTS_PACKED_LISTS_H
#define VANTRO_SERVICE_REQUESTS_PACKED_LISTS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "common/locks.h"

namespace vantro::service::requests {

using Bytes = std::vector<unsigned char>;

// Consecutive nodes of a list, in packed form.
struct PackedNodes {
    size_t first = 0; // the number of the first node in its list
    Bytes bytes;
    std::vector<uint32_t> ends; // the end of each node in `bytes`

    size_t size() const { return bytes.size() + ends.size() * sizeof(uint32_t); }
    // Whether it contains the nodes from `from` to before `to` of its list.
    bool holds(size_t from, size_t to) const {
        return from >= first && from < to && to - first <= ends.size();
    }
    // The bytes of the nodes from `from` to before `to`.
    std::span<const unsigned char> part(size_t from, size_t to) const;
};

// Keeps the most recently used packed nodes. A name is never reused for another list, so no cached
// nodes are ever out of date. Any thread.
class PackedLists {
  public:
    // The number of nodes from which a listing is cached.
    static constexpr size_t nodes_min = 500;

    // The entry that contains these nodes of a list; null if they are not cached.
    std::shared_ptr<const PackedNodes> find(const std::string &list, size_t first, size_t last)
        EXCLUDES(mutex_);
    // Caches a copy, if there is memory for it.
    void keep(const std::string &list, size_t first, std::span<const unsigned char> bytes,
              const std::vector<uint32_t> &ends) noexcept EXCLUDES(mutex_);

  private:
    static constexpr size_t bytes_max = size_t{4} << 20;

    struct Kept {
        std::string list;
        std::shared_ptr<const PackedNodes> nodes;
    };

    Mutex mutex_;
    std::vector<Kept> kept_ GUARDED_BY(mutex_); // the most recently used last; a few
};

} // namespace vantro::service::requests

#endif
