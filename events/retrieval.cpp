// Finds the next event of a player, in the order on which applications rely: queued changes, then
// "state", then new changes of the other objects.
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#include <vantro/player.h>

#include "events/attribute_parsing.h"
#include "events/changes.h"
#include "events/descriptor.h"
#include "events/details.h"
#include "events/log.h"
#include "events/queue.h"
#include "events/replacement.h"
#include "events/state_attributes.h"

namespace vantro::events {

namespace {

// Records that a file's newest change was not applied for lack of memory, so that a later call
// tries again.
void keep_for_later(EventQueue &queue, int fd) {
    if (errno == ENOMEM) {
        queue.unapplied_fd = fd;
    }
}

// Makes the event of a change of "state". @return whether the change could be applied.
bool report_state(EventQueue &queue, char *text) {
    if (update_dict(&queue.state_dict, text) != 0) {
        keep_for_later(queue, queue.state_fd);
        return false;
    }
    VantroEvent &event = queue.event;
    decltype(event.details.state) before;
    before.state = event.state;
    before.rate = event.rate;
    before.repeat = event.repeat;
    before.shuffle = event.shuffle;
    event.object_name = state_object.data();
    event.dict = queue.state_dict;
    event.user_data = queue.state_user_data;
    event.state = queue.state_dict ? apply_state(queue.state_dict, event) : VANTRO_STATE_NONE;
    const char *error = mosk_dict_find_value(queue.state_dict, "error");
    if (error && before.state == VANTRO_STATE_PLAYING && event.state == VANTRO_STATE_STOPPED) {
        event.type = VANTRO_EVENT_ERROR;
        event.details.error.code = integer_of(error);
    } else if (event.state != before.state || event.rate != before.rate ||
               event.repeat != before.repeat || event.shuffle != before.shuffle) {
        event.type = VANTRO_EVENT_STATE;
        event.details.state = before;
    } else {
        event.type = VANTRO_EVENT_NONE;
    }
    return true;
}

// Applies a change to its object's entry. @return whether that succeeded.
bool take_change(EventQueue &queue, std::string_view name, char *text) {
    msglog(LOG_SEVERITY_TRACE, "getobj: %.*s", static_cast<int>(name.size()), name.data());
    ObjectEntry *entry = entry_for(queue, name);
    if (!entry) {
        return false;
    }
    const bool applied = update_dict(&entry->dict, text) == 0;
    if (!applied) {
        msglog(LOG_SEVERITY_TRACE, "update_dict failed");
    }
    if (entry->dict && (!applied || mosk_dict_size(entry->dict) != 0)) {
        enqueue_dirty(queue, entry);
        return applied;
    }
    ObjectEntry *unreported = last_dirty(queue, name);
    if (unreported && !entry->dict) {
        unreported->is_last = true;
    }
    if (unreported || !entry->dict) {
        free_entry(entry);
    } else {
        enqueue_clean(queue, entry);
    }
    return applied;
}

// Queues the changes of the other objects. The publisher's end is not a failure while an earlier
// change is unreported: a later call finds the end again.
// @param state_seen receives whether "state" was among the changed objects.
// @return false if that failed.
bool read_objects(const VantroHandle *handle, EventQueue &queue, bool &state_seen)
    REQUIRES(handle->lock) {
    msglog(LOG_SEVERITY_DEBUG, "Check for all fds events");
    state_seen = false;
    for (size_t read = 0; read < pass_bytes_max;) {
        const ssize_t length = next_change(handle, queue, queue.all_fd);
        if (length < 0 && errno == ESTALE) {
            return state_seen || queue.dirty_head;
        }
        if (length <= 0) {
            return length == 0;
        }
        read += static_cast<size_t>(length) + text_overhead;
        char *text = handle->read_buffer;
        const auto name = object_of({text, static_cast<size_t>(length)});
        if (name == state_object) {
            state_seen = true;
        } else if (name && !take_change(queue, *name, text)) {
            keep_for_later(queue, queue.all_fd);
            return false;
        }
    }
    return true;
}

// Makes the event of the first queued entry.
void report_queued(EventQueue &queue) {
    ObjectEntry *entry = take_dirty_head(queue);
    if (ObjectEntry *reported = take_clean(queue, entry->name())) {
        entry->user_data = reported->user_data;
        free_entry(reported);
    }
    VantroEvent &event = queue.event;
    event.dict = std::exchange(entry->dict, nullptr);
    if (!entry->is_last) {
        enqueue_clean(queue, entry);
    }
    event.object_name = entry->name();
    event.user_data = entry->user_data;
    queue.current_entry = entry;
    filldetails(&event);
}

// Fills the queue's event. @return false if that failed.
bool next_event(const VantroHandle *handle, EventQueue &queue) REQUIRES(handle->lock) {
    // Nothing is read while an entry is queued. A change of "state" that was seen among the others
    // is reported before them.
    bool state_may_have_changed = !queue.dirty_head;
    while (state_may_have_changed) {
        // The copy of a change that is still to be applied must not be overwritten.
        const bool resumes = queue.unapplied_fd == queue.all_fd;
        msglog(LOG_SEVERITY_DEBUG, "Check for the state event");
        const ssize_t length = resumes ? 0 : next_change(handle, queue, queue.state_fd);
        if (length > 0) {
            return report_state(queue, handle->read_buffer);
        }
        // ESTALE: the publisher has ended. The descriptor of all objects reports that as well,
        // after the remaining changes of the other objects.
        if (length < 0 && errno != ESTALE) {
            return false;
        }
        if (!read_objects(handle, queue, state_may_have_changed)) {
            return false;
        }
        state_may_have_changed |= resumes;
    }
    if (queue.dirty_head) {
        report_queued(queue);
    } else {
        queue.event.type = VANTRO_EVENT_NONE;
    }
    return true;
}

// Makes the next event, or the event that reports nothing new. @return false if that failed.
bool retrieve(const VantroHandle *handle, EventQueue &queue) REQUIRES(handle->lock) {
    evcleanup(queue);
    const bool succeeded = !queue.is_away && next_event(handle, queue);
    if (handle->reconnects && (queue.is_away || (!succeeded && errno == ESTALE))) {
        return come_back(queue) == 0;
    }
    return succeeded;
}

} // namespace

} // namespace vantro::events

using namespace vantro::events;

const VantroEvent *vantro_event_get(VantroHandle *handle) {
    const CancelDisabled no_cancel;
    if (!has_player(handle)) {
        return nullptr;
    }
    msglog(LOG_SEVERITY_DEBUG, "vantro_event_get");
    const vantro::MutexLock lock(handle->lock);
    EventQueue *const queue = queue_of(handle);
    if (!queue) {
        return nullptr;
    }
    bool succeeded = retrieve(handle, *queue);
    const bool found_nothing =
        succeeded && queue->event.type == VANTRO_EVENT_NONE && !queue->event.object_name;
    // The death of the publisher is noticed only when the descriptor is checked.
    if (queue->is_polled && settle(handle, *queue, succeeded) && found_nothing) {
        succeeded = retrieve(handle, *queue);
        settle(handle, *queue, succeeded);
    }
    return succeeded ? &queue->event : nullptr;
}
