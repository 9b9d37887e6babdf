#ifndef VANTRO_PLATFORM_LINUX_BASE_INTERRUPTIBLE_CONDITION_H
#define VANTRO_PLATFORM_LINUX_BASE_INTERRUPTIBLE_CONDITION_H

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>

#include "common/locks.h"

namespace vantro::platform {

// A condition variable whose wait ends when a signal handler that was installed without SA_RESTART
// runs: that of the standard library sleeps on. One mutex guards the condition, every wait and
// every notification.
class InterruptibleCondition {
  public:
    // Sleeps until a notification, and at times without one.
    // @param timeout_ms below 0 without a limit.
    // @return 0, EINTR where a handler ran, or ETIMEDOUT.
    int wait(Mutex &mutex, int timeout_ms = -1) REQUIRES(mutex) {
        const struct timespec timeout = {timeout_ms / 1000, timeout_ms % 1000 * 1'000'000L};
        const uint32_t seen = turn_;
        ++sleepers_;
        mutex.unlock();
        // Returns at once where a notification has come since.
        const long result = ::syscall(SYS_futex, &turn_, FUTEX_WAIT_PRIVATE, seen,
                                      timeout_ms < 0 ? nullptr : &timeout, nullptr, 0);
        const int error = result == -1 && (errno == EINTR || errno == ETIMEDOUT) ? errno : 0;
        mutex.lock();
        --sleepers_;
        return error;
    }

    void notify_one() { wake(1); }
    void notify_all() { wake(INT_MAX); }

  private:
    void wake(int count) {
        ++turn_;
        if (sleepers_ > 0) {
            ::syscall(SYS_futex, &turn_, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
        }
    }

    std::atomic<uint32_t> turn_{0}; // counts notifications
    static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));
    int sleepers_ = 0;
};

} // namespace vantro::platform

#endif
