// The calls of inotify that notifications, shared watches and poll descriptors share.
#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_RING_INOTIFY_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_RING_INOTIFY_H

#include <sys/inotify.h>

#include <array>

#include "platform/linux/base/unique_fd.h"
#include "platform/linux/runtime/runtime_directory.h"

namespace vantro::platform {

inline UniqueFd make_inotify() {
    return UniqueFd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
}

// Watches a ring for its bell, and for its publisher's end. @return the watch, or -1 with errno.
inline int add_ring_watch(int inotify, int ring_file) {
    return ::inotify_add_watch(inotify, descriptor_path(ring_file).c_str(),
                               IN_MODIFY | IN_CLOSE_WRITE);
}

// Takes every event that has come. Events of a watched file carry no name, and the kernel merges
// equal ones in a row.
template <class Take>
void read_ring_events(int inotify, Take take) {
    alignas(struct inotify_event) std::array<char, 64 * sizeof(struct inotify_event)> events;
    ssize_t length;
    do {
        length = ::read(inotify, events.data(), events.size());
        for (ssize_t at = 0; at < length; at += sizeof(struct inotify_event)) {
            take(*reinterpret_cast<const struct inotify_event *>(events.data() + at));
        }
    } while (length == static_cast<ssize_t>(events.size()));
}

} // namespace vantro::platform

#endif
