#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_POLL_DESCRIPTOR_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_POLL_DESCRIPTOR_H

#include "platform/linux/base/unique_fd.h"
#include "platform/linux/objects/wake_bell.h"

namespace vantro::platform {

// A descriptor for poll() that is readable once a ring was written or closed, or its bell rung, and
// until that was drained and taken. It has an inotify instance of its own: one that readers share
// would be readable for the events of others.
class PollDescriptor {
  public:
    // @return whether that succeeded; errno says why not.
    bool open(int ring_file, const WakeBell &bell);
    // Has it tell of another ring, instead of the one before. @return as open(); nothing has
    // changed if that failed.
    bool move_to(int ring_file);
    // Has it tell of another descriptor too, until that is closed. @return as open().
    bool add(int descriptor);
    bool is_open() const { return static_cast<bool>(epoll_); }
    int get() const { return epoll_.get(); }

    // @return whether the ring was closed by its publisher.
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
