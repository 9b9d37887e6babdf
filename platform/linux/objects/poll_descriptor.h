#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_POLL_DESCRIPTOR_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_POLL_DESCRIPTOR_H

#include "platform/linux/base/unique_fd.h"
#include "platform/linux/objects/wake_bell.h"

namespace vantro::platform {

// A descriptor for poll(). It becomes readable when a ring is written or closed, or its bell is
// rung, and stays readable until drain() and the bell's take(). It has a separate inotify instance:
// a shared one would be readable for the events of other readers.
class PollDescriptor {
  public:
    // @return false with errno on failure.
    bool open(int ring_file, const WakeBell &bell);
    // Watches another ring instead of the present one. @return false with errno on failure; then
    // nothing has changed.
    bool move_to(int ring_file);
    // Also becomes readable with another descriptor, until that is closed. @return false with errno
    // on failure.
    bool add(int descriptor);
    bool is_open() const { return static_cast<bool>(epoll_); }
    int get() const { return epoll_.get(); }

    // Takes the events. @return whether the ring was closed by its publisher.
    bool drain();

    // In a child of fork: closes the copies.
    void abandon_in_child();

  private:
    UniqueFd inotify_;
    UniqueFd epoll_;
    int watch_ = -1; // of the ring
};

} // namespace vantro::platform

#endif
