// Allocations and system calls that fail when a test says so, in this process or, where the
// environment variable VANTRO_FAULTS names a file with a Control, in another one that is linked
// with inject.cpp: it stands before the C library, and every allocation and every call of its table
// passes it and is counted. Here threads take part that say so; there all of them do.
#ifndef VANTRO_TESTS_FAULTS_INJECT_H
#define VANTRO_TESTS_FAULTS_INJECT_H

#include <atomic>
#include <cstdint>

namespace vantro::faults {

// `disk` is the calls that write or read files. `death` ends the process before such a call, and
// `power` the machine: what was written and not synced is lost.
enum class Kind : int32_t { none, allocation, call, disk, death, power };

// A call that can fail in several ways has as many variants; one that has fewer does not fail.
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

// "From then on" has an end, so that a loop that goes on after a failure is seen to go on.
constexpr int64_t from_then_on = 100;

struct Plan {
    Kind kind = Kind::none;
    int64_t nth = 0;
    int32_t variant = 0;
    int64_t times = 1;
};

// What the plan says fails from now on; what was counted is forgotten.
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
