// Notification of a reader: by a signal, in a wait, or through a descriptor.
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include <vantro/platform/notify.h>

#include "platform/linux/objects/object_directory.h"
#include "platform/linux/objects/object_reader.h"
#include "platform/linux/objects/ring_words.h"

namespace vantro::platform {

void ObjectReader::end_armed_watch() {
    if (notification_.watches() && notification_.finish()) {
        gone_ = gone_ || !publisher_lives(ring_file_.get());
    }
}

// The lock is not taken: in a child of fork, a thread that does not exist there may hold it.
void ObjectReader::end_watches() {
    lock_.assume_held();
    end_armed_watch();
    stop_watching(waiter_);
}

bool ObjectReader::has_input_or_ended() {
    gone_ = gone_ || !publisher_lives(ring_file_.get());
    return has_input();
}

int ObjectReader::arm(int signal) {
    const CancelDisabled no_cancel;
    const MutexLock guard(lock_);
    if (!ring_file_) {
        return fail(EBADF);
    }
    try {
        end_armed_watch();
        if (has_input_or_ended()) {
            return NOTIFY_INPUT;
        }
        if (!notification_.arm(ring_file_.get(), signal)) {
            return -1;
        }
        fence_at_the_bell();
        if (!has_input_or_ended()) {
            return 0;
        }
        end_armed_watch();
        return NOTIFY_INPUT;
    } catch (const std::bad_alloc &) {
        end_armed_watch();
        return fail(ENOMEM);
    }
}

// The watch itself is removed in the read that follows, so that the woken thread continues at once.
// A reader that does not wait has no watch, and so does not burden the publisher.
void ObjectReader::disarm() {
    const CancelDisabled no_cancel;
    const KeepErrno keep;
    const MutexLock guard(lock_);
    notification_.silence();
    if (notification_.watches()) {
        unsettled_.store(true, std::memory_order_relaxed);
    }
}

int ObjectReader::watch_and_look(bool publisher_closed) {
    const MutexLock guard(lock_);
    if (!ring_file_) {
        return fail(EBADF);
    }
    read_without_waiting_ = 0;
    try {
        if (publisher_closed ? has_input_or_ended() : has_input()) {
            return NOTIFY_INPUT;
        }
        if (!bell_.prepare()) {
            return -1;
        }
        switch (watch_ring(waiter_, ring_file_.get(), bell_)) {
        case Watched::failed:
            return -1;
        case Watched::already:
            return 0;
        case Watched::added:
            break;
        }
        fence_at_the_bell();
        return has_input_or_ended() ? NOTIFY_INPUT : 0;
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}

int ObjectReader::wait(int timeout_ms) {
    const CancelDisabled no_cancel;
    const Deadline deadline(timeout_ms);
    if (is_away()) {
        return wait_for_return(deadline, no_cancel);
    }
    Woke woke = {Woke::By::ring, false};
    for (;;) {
        if (const int found = watch_and_look(woke.publisher_closed); found != 0) {
            return found;
        }
        if (bell_.take()) {
            return NOTIFY_WOKEN;
        }
        if (woke.by == Woke::By::time) {
            return 0;
        }
        if (woke.by == Woke::By::signal) {
            return fail(EINTR);
        }
        woke = sleep_for_ring(waiter_, deadline, no_cancel);
    }
}

int ObjectReader::poll_descriptor() {
    const CancelDisabled no_cancel;
    const MutexLock guard(lock_);
    if (!ring_file_) {
        return fail(EBADF);
    }
    if (poll_.is_open()) {
        return poll_.get();
    }
    try {
        if (!bell_.prepare() || !poll_.open(ring_file_.get(), bell_)) {
            return -1;
        }
        if (return_.is_open() && !poll_.add(return_.descriptor())) {
            const KeepErrno keep;
            poll_.abandon_in_child();
            return -1;
        }
        fence_at_the_bell();
        if (has_input_or_ended()) {
            bell_.ring();
        }
        return poll_.get();
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}

int ObjectReader::settle() {
    const CancelDisabled no_cancel;
    const MutexLock guard(lock_);
    if (!ring_file_ || !poll_.is_open()) {
        return fail(EBADF);
    }
    try {
        bell_.take();
        const bool closed = poll_.drain();
        if (return_.is_open()) {
            return 0; // its descriptor reports changes since that look
        }
        fence_at_the_bell();
        if (closed ? has_input_or_ended() : has_input()) {
            bell_.ring();
            return NOTIFY_INPUT;
        }
        return 0;
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}

bool ObjectReader::is_away() {
    const MutexLock guard(lock_);
    return return_.is_open();
}

int ObjectReader::wait_for_return(const Deadline &deadline, const CancelDisabled &cancel) {
    struct pollfd sources[2] = {};
    {
        const MutexLock guard(lock_);
        sources[0] = {return_.descriptor(), POLLIN, 0};
        sources[1] = {bell_.descriptor(), POLLIN, 0};
    }
    for (;;) {
        if (bell_.take()) {
            return NOTIFY_WOKEN;
        }
        bell_.silence_wakes();
        const std::optional<timespec> left = deadline.left();
        pthread_setcancelstate(cancel.previous(), nullptr);
        const int ready = ::ppoll(sources, 2, left ? &*left : nullptr, nullptr);
        const KeepErrno keep;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        if (ready <= 0) {
            return ready;
        }
        if (sources[0].revents != 0) {
            return NOTIFY_INPUT;
        }
    }
}

int ObjectReader::reopen() {
    const CancelDisabled no_cancel;
    const MutexLock guard(lock_);
    if (!ring_file_) {
        return fail(EBADF);
    }
    try {
        if (!return_.is_open()) {
            if (!bell_.prepare() || !return_.open()) {
                return -1;
            }
            if (poll_.is_open() && !poll_.add(return_.descriptor())) {
                const KeepErrno keep;
                return_.close();
                return -1;
            }
        }
        return_.look(relative_); // before checking for the ring, which may appear at any moment
        const std::unique_ptr<ObjectReader> found = open(relative_);
        return found && take_over(*found) ? 0 : -1;
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}

bool ObjectReader::take_over(ObjectReader &other) {
    if (poll_.is_open() && !poll_.move_to(other.ring_file_.get())) {
        return false;
    }
    end_armed_watch();
    stop_watching(waiter_);
    if (::dup3(other.ring_file_.get(), ring_file_.get(), O_CLOEXEC) < 0) {
        return false;
    }
    ring_ = std::move(other.ring_);
    position_ = 0;
    must_start_over_ = is_new_ = true;
    gone_ = is_corrupt_ = false;
    current_.clear();
    pending_.clear();
    known_.clear();
    known_bytes_ = 0;
    unsettled_ = true;
    return_.close();
    return true;
}

} // namespace vantro::platform
