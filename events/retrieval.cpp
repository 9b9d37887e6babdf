// The next event of a player, in the order that applications rely on: queued changes, then "state",
// then new changes of the other objects.
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include <vantro/platform/notify.h>
#include <vantro/player.h>

#include "events/attribute_parsing.h"
#include "events/changes.h"
#include "events/details.h"
#include "events/log.h"
#include "events/queue.h"
#include "events/replacement.h"
#include "events/state_attributes.h"

namespace vantro::events {

namespace {

// Bytes that one call reads at most, with some overhead for each text. This is more than a
// publisher keeps for a reader, so only a service that publishes as fast as it is read reaches the
// limit. Without it such a service would keep the call from returning, and fill the memory.
constexpr size_t pass_bytes_max = size_t{4} << 20;
constexpr size_t text_overhead = 16;

constexpr std::string_view state_object = "state";

// Reads the next change of a file. Parsing overwrites a text, so a copy is kept until it was
// applied.
ssize_t next_change(const VantroHandle *handle, EventQueue &queue, int fd) REQUIRES(handle->lock) {
    if (queue.unapplied_fd != fd) {
        queue.change_length = readchange(handle, fd);
        if (queue.change_length > 0) {
            std::memcpy(queue.change(), handle->read_buffer,
                        static_cast<size_t>(queue.change_length) + 1);
        }
        return queue.change_length;
    }
    queue.unapplied_fd = -1;
    std::memcpy(handle->read_buffer, queue.change(), static_cast<size_t>(queue.change_length) + 1);
    return queue.change_length;
}

// Notes that a file's newest change was not applied for want of memory, so that a later call tries
// again.
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

// The object's name in the first object line of a text, if there is such a line.
std::optional<std::string_view> object_of(std::string_view text) {
    const size_t at = text.find('@');
    const size_t end = at == text.npos ? at : text.find('\n', at);
    if (end == text.npos) {
        return std::nullopt;
    }
    return text.substr(at + 1, end - at - 1);
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

// Queues the changes of the other objects. The publisher's end is no failure while an earlier
// change is not reported yet: a later call meets the end again.
// @param state_seen receives whether "state" was among those that changed.
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

// Keeps the application's descriptor readable while there may be another event. @param more false
// if this call found that there is none.
void settle(const EventQueue &queue, bool more) {
    const KeepErrno keep;
    if (more || (notify_settle(queue.all_fd) == 0 && has_unreported(queue))) {
        notify_wake(queue.all_fd);
    }
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
    evcleanup(*queue);
    bool succeeded = !queue->is_away && next_event(handle, *queue);
    if (handle->reconnects && (queue->is_away || (!succeeded && errno == ESTALE))) {
        succeeded = come_back(*queue) == 0;
    }
    if (queue->is_polled) {
        settle(*queue,
               !succeeded || queue->event.type != VANTRO_EVENT_NONE || queue->event.object_name);
    }
    return succeeded ? &queue->event : nullptr;
}
