// Allocations and system calls that fail when a test says so, in this process or, where the module
// is preloaded, in another one.
//
// inject.cpp stands before the C library: every allocation and every call of its table passes it
// and is counted. A program that it is linked with sets `counting` in the threads that take part.
// In a program that it is preloaded to every thread takes part, and the Control lies in the file
// that the environment variable VANTRO_FAULTS names, which the test maps too.
#ifndef VANTRO_TESTS_FAULTS_INJECT_H
#define VANTRO_TESTS_FAULTS_INJECT_H

#include <atomic>
#include <cstdint>

namespace vantro::faults {

// `disk` is the calls that write or read files, `death` ends the process before such a call.
enum class Kind : int32_t { none, allocation, call, disk, death };

// A call that can fail in several ways has as many variants; one that has fewer does not fail.
constexpr int variants = 3;

struct Control {
    std::atomic<Kind> kind;
    std::atomic<int32_t> variant;
    std::atomic<int64_t> nth; // the first one that fails, counted from 0
    std::atomic<int64_t>
        times;                 // how many fail; EINTR, which callers may repeat, comes once at most
    std::atomic<int64_t> seen; // so far, of that kind and able to fail in that way
    std::atomic<int64_t> failed; // how many were made to fail
    char name[24];               // of the first that failed
};
static_assert(std::atomic<int64_t>::is_always_lock_free);

Control &control();

// "From then on" has an end, so that a loop that goes on after a failure is seen to go on.
constexpr int64_t from_then_on = 100;

// The nth of a kind, and `times` of them in all, fail from now on; what was counted is forgotten.
inline void arm(Control &target, Kind kind, int64_t nth, int variant, int64_t times) {
    target.kind = Kind::none;
    target.seen = 0;
    target.failed = 0;
    target.nth = nth;
    target.variant = variant;
    target.times = times;
    target.name[0] = '\0';
    target.kind = kind;
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
