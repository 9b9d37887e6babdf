// Allocations and system calls that fail when a test says so, in this process or, where the
// environment variable VANTRO_FAULTS names a file with a Control, in another one that is linked
// with inject.cpp: its functions replace those of the C library, so every allocation and every call
// of its table is counted. In this process only the threads that ask for it take part, in the other
// process all threads do.
#ifndef VANTRO_TESTS_FAULTS_INJECT_H
#define VANTRO_TESTS_FAULTS_INJECT_H

#include <atomic>
#include <cstdint>

namespace vantro::faults {

// `disk`: a call that writes or reads a file fails. `death`: the process ends before such a call.
// `power`: the machine stops before such a call, and writes that were not synced are lost.
enum class Kind : int32_t { none, allocation, call, disk, death, power };

// A call has as many variants as ways to fail; for a variant that it does not have, it does not
// fail.
constexpr int variants = 3;

struct Control {
    std::atomic<Kind> kind;
    std::atomic<int32_t> variant;
    std::atomic<int64_t> nth;    // the first one that fails, counted from 0
    std::atomic<int64_t> times;  // how many fail; EINTR, which callers may repeat, comes once
    std::atomic<int64_t> seen;   // so far, of that kind and able to fail in that way
    std::atomic<int64_t> failed; // how many were made to fail
    std::atomic<int32_t> error;  // of the first that failed
    char name[24];               // of the first that failed
};
static_assert(std::atomic<int64_t>::is_always_lock_free);

Control &control();

// The number of failures in "from then on". It is finite, so that a loop that repeats a failed call
// ends.
constexpr int64_t from_then_on = 100;

struct Plan {
    Kind kind = Kind::none;
    int64_t nth = 0;
    int32_t variant = 0;
    int64_t times = 1;
};

// From now on calls fail by the plan; the counts begin at 0.
inline void arm(Control &target, const Plan &plan) {
    target.kind = Kind::none;
    target.seen = target.failed = 0;
    target.error = 0;
    target.name[0] = '\0';
    target.nth = plan.nth;
    target.variant = plan.variant;
    target.times = plan.times;
    target.kind = plan.kind;
}

inline void disarm(Control &target) {
    target.kind = Kind::none;
}

// Whether this thread takes part.
bool &counting();

// Blocks that this thread has allocated and not freed; those of another thread count against it.
int64_t live_blocks();

} // namespace vantro::faults

#endif
