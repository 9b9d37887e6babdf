#include "events/queue.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include <vantro/extras.h>
#include <vantro/platform/io.h>
#include <vantro/platform/notify.h>

#include "events/log.h"
#include "records/fields.h"

namespace vantro::events {

namespace {

constexpr size_t path_size = 1024;

ObjectEntry *unlink(ObjectEntry **link) {
    ObjectEntry *entry = std::exchange(*link, (*link)->next);
    entry->next = nullptr;
    return entry;
}

ObjectEntry *unlink_dirty(EventQueue &queue, ObjectEntry **link) {
    ObjectEntry *entry = unlink(link);
    if (!*link) {
        queue.dirty_tail = link;
    }
    return entry;
}

ObjectEntry **find(ObjectEntry **link, std::string_view name) {
    while (*link && (*link)->name() != name) {
        link = &(*link)->next;
    }
    return link;
}

void free_list(ObjectEntry *entry) {
    while (entry) {
        free_entry(std::exchange(entry, entry->next));
    }
}

// The library owns the records of an event, and hands them out as constant.
template <class Record>
void free_own(const Record *&record) {
    records::free_records(const_cast<Record *>(std::exchange(record, nullptr)), 1);
}

} // namespace

int openobj(const VantroHandle *handle, const char *object) {
    char path[path_size];
    std::snprintf(path, sizeof path, "/kivo/services/vantro/%s/%s", handle->player_name, object);
    return platform_open(path, O_RDONLY);
}

EventQueue *newq(VantroHandle *handle) {
    const CancelDisabled no_cancel;
    auto *queue =
        static_cast<EventQueue *>(std::calloc(1, sizeof(EventQueue) + handle->read_capacity));
    if (!queue) {
        // The spelling is kept: logs are searched for it.
        msglog(LOG_SEVERITY_CRITICAL, "No memeory");
        return nullptr;
    }
    queue->event.state = VANTRO_STATE_IDLE;
    queue->event.rate = 1.0F;
    queue->dirty_tail = &queue->dirty_head;
    queue->all_fd = queue->state_fd = queue->unapplied_fd = -1;
    queue->state_dict = mosk_dict_new();
    if (queue->state_dict && (queue->all_fd = openobj(handle, ".all?delta")) >= 0 &&
        (queue->state_fd = openobj(handle, "state?delta")) >= 0) {
        handle->event_queue = queue;
        return queue;
    }
    const KeepErrno keep;
    if (queue->all_fd >= 0) {
        platform_close(queue->all_fd);
    }
    mosk_dict_destroy(queue->state_dict);
    std::free(queue);
    return nullptr;
}

EventQueue *queue_of(VantroHandle *handle) {
    EventQueue *const queue = handle->event_queue;
    return queue ? queue : newq(handle);
}

bool state_is_unread(const EventQueue &queue) {
    const KeepErrno keep;
    char nothing = 0;
    return platform_read(queue.state_fd, &nothing, 0) < 0 && errno == EMSGSIZE;
}

bool has_unreported(const EventQueue &queue) {
    return queue.dirty_head || queue.unapplied_fd != -1 || state_is_unread(queue);
}

void evcleanup(EventQueue &queue) {
    msglog(LOG_SEVERITY_TRACE, "evclentup"); // the spelling is kept likewise
    VantroEvent &event = queue.event;
    if (event.type != 0) {
        if (ObjectEntry *entry = std::exchange(queue.current_entry, nullptr)) {
            mosk_dict_destroy(const_cast<mosk_dict *>(event.dict));
            if (entry->is_last) {
                free_entry(entry);
            }
        }
        event.dict = nullptr;
        event.object_name = nullptr;
        event.user_data = nullptr;
    }
    if (event.type == VANTRO_EVENT_MEDIASOURCE) {
        free_own(event.details.mediasource.media_source);
    }
    if (event.type == VANTRO_EVENT_TRACK) {
        free_own(event.details.track.media_node);
        free_own(event.details.track.metadata);
    }
    event.type = 0;
}

int come_back(EventQueue &queue) {
    queue.is_away = true;
    VantroEvent &event = queue.event;
    event.type = VANTRO_EVENT_NONE;
    mosk_dict *const nothing = mosk_dict_new();
    if (!nothing) {
        errno = ENOMEM;
        return -1;
    }
    const int before = errno;
    if (notify_reopen(queue.all_fd) != 0 || notify_reopen(queue.state_fd) != 0) {
        const int error = errno;
        mosk_dict_destroy(nothing);
        errno = before;
        return error == ENOENT || error == ECONNREFUSED ? 0 : platform::fail(error);
    }
    queue.is_away = false;
    queue.unapplied_fd = -1;
    free_list(std::exchange(queue.clean_list, nullptr));
    free_list(std::exchange(queue.dirty_head, nullptr));
    queue.dirty_tail = &queue.dirty_head;
    mosk_dict_destroy(std::exchange(queue.state_dict, nothing));
    queue.state_user_data = nullptr;
    event.state = VANTRO_STATE_IDLE;
    event.rate = 1.0F;
    event.repeat = {};
    event.shuffle = {};
    event.object_name = VANTRO_OBJECT_RECONNECTED;
    event.dict = queue.state_dict;
    event.user_data = nullptr;
    return 0;
}

bool has_player(const VantroHandle *handle) {
    if (handle && handle->player_name) {
        return true;
    }
    msglog(LOG_SEVERITY_WARNING, "Invalid vantro handle");
    return false;
}

ObjectEntry *new_entry(std::string_view name) {
    void *block = std::malloc(sizeof(ObjectEntry) + name.size() + 1);
    if (!block) {
        return nullptr;
    }
    auto *entry = new (block) ObjectEntry{};
    std::memcpy(entry->name(), name.data(), name.size());
    entry->name()[name.size()] = '\0';
    return entry;
}

void free_entry(ObjectEntry *entry) {
    mosk_dict_destroy(entry->dict);
    std::free(entry);
}

ObjectEntry *last_dirty(const EventQueue &queue, std::string_view name) {
    ObjectEntry *last = nullptr;
    for (ObjectEntry *entry = queue.dirty_head; entry; entry = entry->next) {
        last = entry->name() == name ? entry : last;
    }
    return last;
}

ObjectEntry *take_clean(EventQueue &queue, std::string_view name) {
    ObjectEntry **link = find(&queue.clean_list, name);
    return *link ? unlink(link) : nullptr;
}

ObjectEntry *take_dirty(EventQueue &queue, std::string_view name) {
    ObjectEntry **link = find(&queue.dirty_head, name);
    return *link ? unlink_dirty(queue, link) : nullptr;
}

ObjectEntry *take_dirty_head(EventQueue &queue) {
    return unlink_dirty(queue, &queue.dirty_head);
}

void enqueue_clean(EventQueue &queue, ObjectEntry *entry) {
    msglog(LOG_SEVERITY_TRACE, "enqueue_clean");
    entry->next = queue.clean_list;
    queue.clean_list = entry;
}

void enqueue_dirty(EventQueue &queue, ObjectEntry *entry) {
    msglog(LOG_SEVERITY_TRACE, "enqueue_dirty");
    *queue.dirty_tail = entry;
    queue.dirty_tail = &entry->next;
}

} // namespace vantro::events

using namespace vantro::events;

void vantro_internal_destroy_evq(struct EventQueue *queue) {
    if (!queue) {
        return;
    }
    const KeepErrno keep;
    const CancelDisabled no_cancel;
    platform_close(queue->all_fd);
    platform_close(queue->state_fd);
    evcleanup(*queue);
    free_list(queue->clean_list);
    free_list(queue->dirty_head);
    mosk_dict_destroy(queue->state_dict);
    std::free(queue);
}
