#ifndef VANTRO_PLATFORM_LINUX_BASE_INTERRUPTIBLE_CONDITION_H
#define VANTRO_PLATFORM_LINUX_BASE_INTERRUPTIBLE_CONDITION_H

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>

#include "common/locks.h"
#include "platform/linux/base/deadline.h"

namespace vantro::platform {

// A condition variable whose wait ends when a signal handler without SA_RESTART runs: the standard
// library's condition variable keeps sleeping. One mutex guards the condition, every wait and every
// notification.
class InterruptibleCondition {
  public:
    // Sleeps until a notification; may wake without one.
    // @return 0, EINTR if a handler ran, or ETIMEDOUT.
    int wait(Mutex &mutex, const Deadline &deadline) REQUIRES(mutex) {
        const std::optional<timespec> left = deadline.left();
        const uint32_t seen = turn_;
        ++sleepers_;
        mutex.unlock();
        // Returns at once if a notification has come since.
        const long result = ::syscall(SYS_futex, &turn_, FUTEX_WAIT_PRIVATE, seen,
                                      left ? &*left : nullptr, nullptr, 0);
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
