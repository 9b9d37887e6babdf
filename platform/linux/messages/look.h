// Looking for a change of a word in memory before a thread sleeps; and the budget that bounds the
// cost.
//
//  - A look lasts at most look_ns.
// - A look without success takes its whole duration from the thread's budget, including time in
//   which other threads ran. The budget grows by a fiftieth of the time that passes, up to
//   budget_ns. So looks without success cost at most a fiftieth of a thread's time, and budget_ns
//   at a time.
//  - A look does not yield the processor. The peer runs on another one, and a thread that yields
//    if others want the processor waits for all of their turns, and again before its next one.
// - If a look lasted much longer, the thread lost its processor, because other threads want it. The
//   thread then does not look for 25 times as long as it was without the processor, 100 ms at most,
//   and for twice the previous time if that happens again soon, up to a second: a thread that looks
//   uses up its share of such a processor, and waits longer for its next turn than a thread that
//   sleeps. So a program that computes all the time ends the looking, and one that ran for a moment
//   does not.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_LOOK_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_LOOK_H

#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace vantro::platform {

// See ipc_allow_looking().
extern std::atomic<bool> looking_allowed;

inline int64_t monotonic_ns() {
    struct timespec now;
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

inline void relax_processor() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    __asm__ volatile("yield");
#endif
}

class LookBudget {
  public:
    static constexpr int64_t look_ns = 50'000;
    static constexpr int64_t budget_ns = 1'000'000;
    static constexpr int64_t share = 50;       // one part in this many
    static constexpr int64_t lost_ns = 25'000; // beyond look_ns
    static constexpr int64_t barred_share = 25;
    static constexpr int64_t first_barred_max_ns = 100'000'000;
    static constexpr int64_t most_barred_ns = 1'000'000'000;
    static constexpr int checks_between = 16; // of the word, between two of the time

    // Whether a look that begins now is within the budget.
    bool allows(int64_t now) {
        if (now < barred_until_) {
            return false;
        }
        if (left_ < budget_ns) {
            left_ = std::min(budget_ns, left_ + (now - counted_at_) / share);
            counted_at_ = now;
        }
        return left_ >= look_ns;
    }

    // Looks until the word differs from `seen`. @return false if it still does not, or if there is
    // no budget for a look.
    bool look(const std::atomic<uint32_t> &word, uint32_t seen) {
        const int64_t begin = monotonic_ns();
        if (!allows(begin)) {
            return false;
        }
        bool changed = false;
        while (!(changed = check(word, seen)) && monotonic_ns() - begin < look_ns) {
        }
        const int64_t now = monotonic_ns();
        if (changed && now - begin < look_ns) {
            return true;
        }
        left_ -= now - begin;
        counted_at_ = now;
        if (const int64_t lost = now - begin - look_ns; lost > lost_ns) {
            bar(now, lost);
        }
        return changed || word.load(std::memory_order_acquire) != seen;
    }

  private:
    static bool check(const std::atomic<uint32_t> &word, uint32_t seen) {
        for (int i = 0; i < checks_between; ++i) {
            if (word.load(std::memory_order_acquire) != seen) {
                return true;
            }
            relax_processor();
        }
        return false;
    }

    void bar(int64_t now, int64_t lost) {
        const int64_t first = std::min(barred_share * lost, first_barred_max_ns);
        const bool is_soon = now - barred_until_ < 4 * barred_for_;
        barred_for_ = is_soon ? std::min(std::max(2 * barred_for_, first), most_barred_ns) : first;
        barred_until_ = now + barred_for_;
    }

    int64_t left_ = budget_ns;
    int64_t counted_at_ = 0; // the time to which `left_` belongs
    int64_t barred_until_ = 0;
    int64_t barred_for_ = 0;
};

} // namespace vantro::platform

#endif
