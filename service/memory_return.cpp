#include "service/memory_return.h"

#include <malloc.h>

namespace vantro::service {

namespace {

// Blocks above this size are mapped from the system and returned to it at once. The bound is fixed,
// since the heap would otherwise raise it each time a large block is freed, and keep up to 32 MiB.
constexpr int mapped_from = 1024 * 1024;

} // namespace

MemoryReturn::MemoryReturn(std::chrono::nanoseconds delay)
    : delay_(delay), worker_("memory", [this] { return round(); }) {
    mallopt(M_MMAP_THRESHOLD, mapped_from);
}

void MemoryReturn::note() {
    if (!noted_.exchange(true)) {
        worker_.look();
    }
}

// note() requests the first round, which only starts the delay; the second round returns the
// memory.
std::optional<std::chrono::nanoseconds> MemoryReturn::round() {
    if (!noted_) {
        return std::nullopt;
    }
    waits_ = !waits_;
    if (waits_) {
        return delay_;
    }
    noted_ = false; // first, so that later calls of note() count again
    malloc_trim(0);
    return std::nullopt;
}

} // namespace vantro::service
