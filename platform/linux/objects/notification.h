#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_NOTIFICATION_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_NOTIFICATION_H

#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// Watches a ring for a thread: an inotify instance that sends a signal when the file is written, or
// closed by its publisher.
//
// The process keeps a few instances and reuses them: a user has only 128 on most hosts, and closing
// one soon after a watch ended takes a hundred times as long as the whole wait.
class Notification {
  public:
    // Arms for the calling thread. @return false with errno on failure.
    bool arm(int file, int signal);

    // After this no signal is sent. This is all that a thread must do before it continues after a
    // wake-up.
    void silence();

    // Whether a signal may still be sent.
    bool armed() const { return may_send_; }

    // Whether there is a watch to end.
    bool watches() const { return static_cast<bool>(inotify_); }

    // Silences, and ends the watch. @return whether the file's publisher has closed it.
    bool finish();

    // In a child of fork: closes the copy.
    void abandon_in_child() { inotify_.reset(); }

  private:
    UniqueFd inotify_;
    int watch_ = -1;
    bool may_send_ = false;
};

// Around a fork, for the instances that the process keeps. The child closes its copies.
void hold_spare_instances();
void release_spare_instances(bool in_child);

} // namespace vantro::platform

#endif
