#include "platform/linux/objects/notification.h"

#include <fcntl.h>
#include <sys/syscall.h>

#include <array>
#include <cerrno>
#include <utility>

#include "common/locks.h"
#include "platform/linux/objects/ring_inotify.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

namespace {

// Instances without a watch; about as many as threads that wait at the same time.
struct Spares {
    static constexpr size_t max = 4;

    Mutex lock;
    std::array<UniqueFd, max> instances GUARDED_BY(lock);
    size_t count GUARDED_BY(lock) = 0;

    // Threads may still wait while the process ends; they then find no instance here.
    ~Spares() {
        const MutexLock guard(lock);
        count = 0;
    }
    UniqueFd take() {
        {
            const MutexLock guard(lock);
            if (count > 0) {
                return std::move(instances[--count]);
            }
        }
        return make_inotify();
    }
    void give_back(UniqueFd instance) {
        const MutexLock guard(lock);
        if (count < max) {
            instances[count++] = std::move(instance);
        }
    }
};

// Destroyed with the library, which closes the instances.
Spares spares;

bool direct_signal(int inotify, int signal) {
    const struct f_owner_ex owner = {F_OWNER_TID, static_cast<pid_t>(::syscall(SYS_gettid))};
    return ::fcntl(inotify, F_SETSIG, signal) == 0 && ::fcntl(inotify, F_SETOWN_EX, &owner) == 0 &&
           ::fcntl(inotify, F_SETFL, O_NONBLOCK | O_ASYNC) == 0;
}

} // namespace

bool Notification::arm(int file, int signal) {
    inotify_ = spares.take();
    if (!inotify_) {
        return false;
    }
    may_send_ = true;
    watch_ = -1;
    if (direct_signal(inotify_.get(), signal)) {
        watch_ = add_ring_watch(inotify_.get(), file);
    }
    if (watch_ < 0) {
        const KeepErrno keep;
        finish();
        return false;
    }
    return true;
}

void Notification::silence() {
    if (std::exchange(may_send_, false)) {
        ::fcntl(inotify_.get(), F_SETFL, O_NONBLOCK);
    }
}

bool Notification::finish() {
    // Removing a watch is an event too, so signals are ended first.
    silence();
    if (watch_ >= 0) {
        ::inotify_rm_watch(inotify_.get(), watch_);
    }
    bool closed = false;
    read_ring_events(inotify_.get(), [&closed](const struct inotify_event &event) {
        closed = closed || (event.mask & IN_CLOSE_WRITE) != 0;
    });
    spares.give_back(std::move(inotify_));
    return closed;
}

void hold_spare_instances() ACQUIRE(spares.lock) {
    spares.lock.lock();
}

void release_spare_instances(bool in_child) RELEASE(spares.lock) {
    if (in_child) {
        for (UniqueFd &instance : spares.instances) {
            instance.reset();
        }
        spares.count = 0;
    }
    spares.lock.unlock();
}

} // namespace vantro::platform
