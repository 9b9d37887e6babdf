#ifndef VANTRO_PLATFORM_LINUX_NOTIFICATION_H
#define VANTRO_PLATFORM_LINUX_NOTIFICATION_H

#include "platform/linux/unique_fd.h"

namespace vantro::platform {

/**
 * Watches a ring for its thread: an inotify instance that sends a signal when the file is written,
 * or closed by its publisher.
 *
 * An instance is taken from a few that the process keeps, and given back as soon as it is disarmed:
 * a user has 128 of them on most hosts, and closing one soon after a watch ended takes a hundred
 * times as long as the whole wait.
 */
class Notification {
  public:
    bool armed() const { return static_cast<bool>(inotify_); }

    /** Arms for the calling thread. @return whether that went well; errno says why not. */
    bool arm(int file, int signal);

    /** Nothing is sent from here on. @return whether the file was closed by its publisher. */
    bool disarm();

    /** In a child of fork: closes the copy. */
    void abandon_in_child() { inotify_.reset(); }

  private:
    UniqueFd inotify_;
    int watch_ = -1;
};

/** The instances that the process keeps, across a fork: the child closes its copies. */
void hold_spare_instances();
void release_spare_instances(bool in_child);

} // namespace vantro::platform

#endif
