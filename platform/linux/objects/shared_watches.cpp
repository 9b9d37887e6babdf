#include "platform/linux/objects/shared_watches.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <utility>

#include "platform/linux/objects/ring_inotify.h"

namespace vantro::platform {

constinit Mutex watches_lock;

namespace {

// Only the descriptor has a destructor: threads may still wait while the process ends.
struct SharedInstance {
    UniqueFd inotify GUARDED_BY(watches_lock);
    RingWaiter *waiters GUARDED_BY(watches_lock) = nullptr; // the waiters that have a watch
    const RingWaiter *leader GUARDED_BY(watches_lock) = nullptr;

    ~SharedInstance() {
        const MutexLock guard(watches_lock);
        inotify.reset();
    }
};

SharedInstance shared;

bool is_watched(int watch) REQUIRES(watches_lock) {
    for (const RingWaiter *waiter = shared.waiters; waiter; waiter = waiter->next) {
        if (waiter->watch == watch) {
            return true;
        }
    }
    return false;
}

void strike_off(const RingWaiter &waiter) REQUIRES(watches_lock) {
    for (RingWaiter **link = &shared.waiters; *link; link = &(*link)->next) {
        if (*link == &waiter) {
            *link = waiter.next;
            return;
        }
    }
}

void end_watch(int watch) REQUIRES(watches_lock) {
    for (RingWaiter **link = &shared.waiters; *link;) {
        RingWaiter &waiter = **link;
        if (waiter.watch == watch) {
            *link = waiter.next;
            waiter.watch = -1;
        } else {
            link = &waiter.next;
        }
    }
    ::inotify_rm_watch(shared.inotify.get(), watch);
}

// A reader that is busy with one event is about to wait for the next.
constexpr unsigned missed_max = 16;

// Wakes the readers of a ring, except the leader, which read the event. If none of them waits any
// more, the watch ends.
void tell(const struct inotify_event &event) REQUIRES(watches_lock) {
    const bool all = (event.mask & IN_Q_OVERFLOW) != 0;
    bool known = false;
    bool is_wanted = false;
    for (RingWaiter *waiter = shared.waiters; waiter; waiter = waiter->next) {
        if (!all && waiter->watch != event.wd) {
            continue;
        }
        known = true;
        waiter->missed += waiter->waiting ? 0 : 1;
        is_wanted = is_wanted || waiter->missed <= missed_max;
        // After an overflow anything may have happened.
        waiter->closed = waiter->closed || all || (event.mask & IN_CLOSE_WRITE) != 0;
        if (!waiter->rung && waiter->waiting && waiter != shared.leader) {
            waiter->bell->wake();
        }
        waiter->rung = true;
    }
    if (known && !is_wanted && !all) {
        end_watch(event.wd);
    }
}

// The time in which a thread waits. However it ends, there is a leader afterwards if other threads
// still wait.
class SCOPED_CAPABILITY Waiting {
  public:
    explicit Waiting(RingWaiter &waiter) ACQUIRE(watches_lock) : waiter_(waiter) {
        watches_lock.lock();
        waiter_.waiting = true;
        waiter_.missed = 0;
    }
    ~Waiting() RELEASE() {
        if (!locked_) {
            watches_lock.lock();
        }
        waiter_.waiting = false;
        if (shared.leader == &waiter_) {
            shared.leader = nullptr;
        }
        const RingWaiter *next = shared.leader ? nullptr : shared.waiters;
        while (next && !next->waiting) {
            next = next->next;
        }
        if (next) {
            next->bell->wake();
        }
        watches_lock.unlock();
    }
    Waiting(const Waiting &) = delete;
    Waiting &operator=(const Waiting &) = delete;

    // Sleeps once. @return the result of ppoll().
    int sleep(const timespec *timeout, const CancelDisabled &cancel) REQUIRES(watches_lock) {
        if (!shared.leader) {
            shared.leader = &waiter_;
        }
        const bool leads = shared.leader == &waiter_;
        std::array<struct pollfd, 2> files = {
            {{waiter_.bell->descriptor(), POLLIN, 0}, {shared.inotify.get(), POLLIN, 0}}};
        unlock();
        pthread_setcancelstate(cancel.previous(), nullptr);
        const int ready = ::ppoll(files.data(), leads ? 2 : 1, timeout, nullptr);
        const KeepErrno keep;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        lock();
        if (ready > 0 && files[0].revents != 0) {
            waiter_.bell->silence_wakes();
        }
        if (ready > 0 && leads && files[1].revents != 0) {
            read_ring_events(shared.inotify.get(), tell);
        }
        return ready;
    }

  private:
    void lock() ACQUIRE(watches_lock) {
        watches_lock.lock();
        locked_ = true;
    }
    void unlock() RELEASE(watches_lock) {
        locked_ = false;
        watches_lock.unlock();
    }

    RingWaiter &waiter_;
    bool locked_ = true;
};

} // namespace

Watched watch_ring(RingWaiter &waiter, int ring_file, const WakeBell &bell) {
    const MutexLock guard(watches_lock);
    if (waiter.watch >= 0) {
        return Watched::already;
    }
    if (!shared.inotify) {
        shared.inotify = make_inotify();
        if (!shared.inotify) {
            return Watched::failed;
        }
    }
    const int watch = add_ring_watch(shared.inotify.get(), ring_file);
    if (watch < 0) {
        return Watched::failed;
    }
    waiter = {.watch = watch, .bell = &bell, .next = shared.waiters};
    shared.waiters = &waiter;
    return Watched::added;
}

void stop_watching(RingWaiter &waiter) {
    const KeepErrno keep;
    const MutexLock guard(watches_lock);
    if (waiter.watch < 0 || waiter.waiting) {
        return;
    }
    strike_off(waiter);
    if (!is_watched(waiter.watch)) {
        ::inotify_rm_watch(shared.inotify.get(), waiter.watch);
    }
    waiter.watch = -1;
}

Woke sleep_for_ring(RingWaiter &waiter, const Deadline &deadline, const CancelDisabled &cancel) {
    Waiting waiting(waiter);
    Woke woke = {Woke::By::ring, false};
    while (!waiter.rung && woke.by == Woke::By::ring) {
        const std::optional<timespec> left = deadline.left();
        const int ready = waiting.sleep(left ? &*left : nullptr, cancel);
        if (ready == 0) {
            woke.by = Woke::By::time;
        } else if (ready < 0) {
            woke.by = Woke::By::signal;
        } else if (waiter.bell->is_rung()) {
            woke.by = Woke::By::bell;
        }
    }
    waiter.rung = false;
    woke.publisher_closed = std::exchange(waiter.closed, false);
    return woke;
}

void hold_shared_watches() {
    watches_lock.lock();
}

void release_shared_watches(bool in_child) {
    if (in_child) {
        shared.inotify.reset();
        shared.waiters = nullptr;
        shared.leader = nullptr;
    }
    watches_lock.unlock();
}

} // namespace vantro::platform
