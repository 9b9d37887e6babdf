#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_WAKE_BELL_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_WAKE_BELL_H

#include <sys/eventfd.h>

#include <atomic>
#include <cstdint>

#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// Ends a reader's waits, from any thread. It stays rung until take().
class WakeBell {
  public:
    WakeBell() = default;
    ~WakeBell() { close_descriptor(descriptor_); }
    WakeBell(const WakeBell &) = delete;
    WakeBell &operator=(const WakeBell &) = delete;

    // Makes the descriptor on which a thread waits. Called with its owner's lock held. @return
    // false with errno on failure.
    bool prepare() {
        if (descriptor_ < 0) {
            const int made = ::eventfd(rung_ ? 1 : 0, EFD_NONBLOCK | EFD_CLOEXEC);
            if (made < 0) {
                return false;
            }
            descriptor_ = made;
        }
        return true;
    }

    void ring() {
        if (!rung_.exchange(true)) {
            wake();
        }
    }

    // Makes the descriptor readable once, so that a waiting thread checks again.
    void wake() const {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(descriptor_, &one, sizeof one);
    }

    // @return whether it was rung. The descriptor is read first, so that a ring in between is not
    //   lost.
    bool take() {
        if (!rung_) {
            return false;
        }
        silence();
        return rung_.exchange(false);
    }

    // Undoes wake(); the descriptor stays readable if the bell was rung as well.
    void silence_wakes() const {
        if (!rung_) {
            silence();
            if (rung_) {
                wake();
            }
        }
    }

    bool is_rung() const { return rung_; }
    int descriptor() const { return descriptor_; }

    // In a child of fork.
    void abandon_in_child() { close_descriptor(descriptor_.exchange(-1)); }

  private:
    void silence() const {
        uint64_t count;
        [[maybe_unused]] const ssize_t read = ::read(descriptor_, &count, sizeof count);
    }

    std::atomic<bool> rung_{false};
    // If the bell was rung before the descriptor existed, prepare() sees that in `rung_`.
    std::atomic<int> descriptor_{-1};
};

} // namespace vantro::platform

#endif
