#include "service/requests/progress.h"

#include <algorithm>

namespace vantro::service::requests {

namespace {

std::array<std::atomic<uint64_t>, steps_max> counts;
std::atomic<size_t> threads = 0;

// Of all threads beyond steps_max, which are not looked at.
thread_local std::atomic<uint64_t> spare = 0;

} // namespace

std::atomic<uint64_t> &Step::own_count() {
    thread_local const size_t at = threads++;
    return at < steps_max ? counts[at] : spare;
}

bool Progress::gets_on() {
    const size_t count = std::min(threads.load(), steps_max);
    bool all = true;
    for (size_t i = 0; i < count; ++i) {
        const uint64_t now = counts[i].load(std::memory_order_relaxed);
        all = all && (now % 2 == 0 || now != before_[i]);
        before_[i] = now;
    }
    return all;
}

} // namespace vantro::service::requests
