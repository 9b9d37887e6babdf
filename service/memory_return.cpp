#include "service/memory_return.h"

#include <malloc.h>

namespace vantro::service {

namespace {

// Answers above this come from the host and go back to it at once. A fixed bound, since the heap
// raises its own each time that something large is freed, up to 32 MiB that it then keeps.
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

// A note calls the first round, which waits; the second gives back.
std::optional<std::chrono::nanoseconds> MemoryReturn::round() {
    if (!noted_) {
        return std::nullopt;
    }
    waits_ = !waits_;
    if (waits_) {
        return delay_;
    }
    noted_ = false; // first, so that what is freed from now on is noted again
    malloc_trim(0);
    return std::nullopt;
}

} // namespace vantro::service
