// Waiting for the player to publish something, and values that applications attach to objects.
#include <cerrno>

#include <vantro/extras.h>
#include <vantro/platform/notify.h>
#include <vantro/player.h>

#include "events/descriptor.h"
#include "events/log.h"
#include "events/queue.h"

namespace vantro::events {

namespace {

// @return 1 if there may be an event, 0 after the time limit, or -1 with errno.
int wait_for_event(VantroHandle *handle, int timeout_ms) {
    EventQueue *const queue = queue_of(handle);
    if (!queue) {
        return -1;
    }
    if (queue->dirty_head) {
        msglog(LOG_SEVERITY_TRACE, "vantro_event_wait: some events in the queue");
        return 1;
    }
    if (has_unreported(*queue)) {
        msglog(LOG_SEVERITY_TRACE, "vantro_event_wait: the state is unread");
        return 1;
    }
    if (handle->is_woken.exchange(false)) {
        return 1;
    }
    const int result = notify_wait(queue->all_fd, timeout_ms);
    return result > 0 ? 1 : result;
}

// Unlike vantro_event_wait(), the calls of extras.h report a bad handle by errno too.
bool may_follow(const VantroHandle *handle) {
    if (has_player(handle)) {
        return true;
    }
    errno = EINVAL;
    return false;
}

} // namespace

} // namespace vantro::events

using namespace vantro::events;

// Cancellation unwinds through the waits, which are therefore not noexcept.
int vantro_event_wait(VantroHandle *handle) {
    if (!has_player(handle)) {
        return -1;
    }
    msglog(LOG_SEVERITY_DEBUG, "vantro_event_wait:");
    return wait_for_event(handle, -1) > 0 ? 0 : -1;
}

int vantro_event_wait_for(VantroHandle *handle, int timeout_ms) {
    if (!may_follow(handle)) {
        return -1;
    }
    msglog(LOG_SEVERITY_DEBUG, "vantro_event_wait_for: %d ms", timeout_ms);
    return wait_for_event(handle, timeout_ms);
}

int vantro_event_wake(VantroHandle *handle) {
    if (!handle) {
        errno = EINVAL;
        return -1;
    }
    const EventQueue *queue = handle->event_queue;
    if (!queue) {
        handle->is_woken = true;
        queue = handle->event_queue;
    }
    return queue ? notify_wake(queue->all_fd) : 0;
}

int vantro_event_fd(VantroHandle *handle) {
    const CancelDisabled no_cancel;
    if (!may_follow(handle)) {
        return -1;
    }
    EventQueue *const queue = queue_of(handle);
    if (!queue) {
        return -1;
    }
    const vantro::MutexLock lock(handle->lock);
    const bool more = !queue->is_polled && has_next(handle, *queue);
    const int descriptor = notify_poll_descriptor(queue->all_fd);
    if (descriptor >= 0 && !queue->is_polled) {
        queue->is_polled = true;
        if (more || handle->is_woken.exchange(false)) {
            notify_wake(queue->all_fd);
        }
    }
    return descriptor;
}

int vantro_event_data_set(VantroHandle *handle, void *data) {
    EventQueue *const queue = handle ? handle->event_queue.load() : nullptr;
    if (!queue || !queue->event.dict) {
        errno = EINVAL;
        return -1;
    }
    (queue->current_entry ? queue->current_entry->user_data : queue->state_user_data) = data;
    queue->event.user_data = data;
    return 0;
}
