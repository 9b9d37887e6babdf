#include "platform/linux/objects/poll_descriptor.h"

#include <sys/epoll.h>

#include <utility>

#include "platform/linux/objects/ring_inotify.h"

namespace vantro::platform {

bool PollDescriptor::open(int ring_file, const WakeBell &bell) {
    UniqueFd inotify = make_inotify();
    UniqueFd epoll(::epoll_create1(EPOLL_CLOEXEC));
    const int watch = inotify && epoll ? add_ring_watch(inotify.get(), ring_file) : -1;
    if (watch < 0) {
        return false;
    }
    struct epoll_event event = {};
    event.events = EPOLLIN;
    for (const int file : {inotify.get(), bell.descriptor()}) {
        if (::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, file, &event) != 0) {
            return false;
        }
    }
    inotify_ = std::move(inotify);
    epoll_ = std::move(epoll);
    watch_ = watch;
    return true;
}

bool PollDescriptor::move_to(int ring_file) {
    const int watch = add_ring_watch(inotify_.get(), ring_file);
    if (watch < 0) {
        return false;
    }
    if (watch != watch_) {
        ::inotify_rm_watch(inotify_.get(), std::exchange(watch_, watch));
    }
    return true;
}

bool PollDescriptor::add(int descriptor) {
    struct epoll_event event = {};
    event.events = EPOLLIN;
    return ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

bool PollDescriptor::drain() {
    bool closed = false;
    read_ring_events(inotify_.get(), [&closed](const struct inotify_event &event) {
        closed = closed || (event.mask & (IN_CLOSE_WRITE | IN_Q_OVERFLOW)) != 0;
    });
    return closed;
}

void PollDescriptor::abandon_in_child() {
    epoll_.reset();
    inotify_.reset();
}

} // namespace vantro::platform
