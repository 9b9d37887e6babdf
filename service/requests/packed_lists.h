// Long listings as they travel, kept for those who ask for them next.
#ifndef VANTRO_SERVICE_REQUESTS_PACKED_LISTS_H
#define VANTRO_SERVICE_REQUESTS_PACKED_LISTS_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "common/locks.h"

namespace vantro::service::requests {

using Bytes = std::vector<unsigned char>;

// Keeps what was used most recently. Names are never used again for other bytes, so nothing that is
// kept is ever out of date. Any thread.
class PackedLists {
  public:
    // From how many nodes on a listing is worth keeping.
    static constexpr size_t nodes_min = 500;

    // Null if it is not kept.
    std::shared_ptr<const Bytes> find(const std::string &name) EXCLUDES(mutex_);
    // Keeps a copy, if there is memory for it.
    void keep(const std::string &name, const unsigned char *bytes, size_t size) noexcept
        EXCLUDES(mutex_);

  private:
    static constexpr size_t bytes_max = size_t{4} << 20;

    struct Kept {
        std::string name;
        std::shared_ptr<const Bytes> bytes;
    };

    Mutex mutex_;
    std::vector<Kept> kept_ GUARDED_BY(mutex_); // the most recently used last; a few
};

} // namespace vantro::service::requests

#endif
