// How a reader learns that there is something to read: by a signal, in a wait, or from a
// descriptor.
#include <cerrno>
#include <new>

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

// The lock is not taken: in a child of fork it may be held by a thread that is not there.
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

// The watch itself ends in the read that follows: the thread that was woken is to go on at once. A
// reader that does not wait has no watch, and so costs the publisher nothing.
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

} // namespace vantro::platform
