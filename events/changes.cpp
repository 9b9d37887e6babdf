#include "events/changes.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <vantro/platform/change.h>
#include <vantro/platform/io.h>

#include "events/log.h"

namespace vantro::events {

namespace {

void no_dictionary() {
    msglog(LOG_SEVERITY_WARNING, "dict is null and please investigate");
}

// Stores the dictionary that a change has returned, or keeps the old one if the change failed.
bool keep(mosk_dict **dict, mosk_dict *changed) {
    if (changed) {
        *dict = changed;
    }
    return changed != nullptr;
}

bool set(mosk_dict **dict, const kivo_record &line) {
    msglog(LOG_SEVERITY_TRACE, "KIVO_ATTRIBUTE: %s::%s", line.attribute, line.value);
    if (!*dict) {
        no_dictionary();
    } else if (!keep(dict, mosk_dict_set(*dict, line.attribute, line.value))) {
        msglog(LOG_SEVERITY_WARNING, "Failed to copy attribute %s::%s", line.attribute, line.value);
        return false;
    }
    return true;
}

bool remove(mosk_dict **dict, const kivo_record &line) {
    msglog(LOG_SEVERITY_TRACE, "KIVO_ATTRIBUTE_DELETED: %s", line.attribute);
    if (!*dict) {
        no_dictionary();
    } else if (!keep(dict, mosk_dict_key_delete(*dict, line.attribute))) {
        msglog(LOG_SEVERITY_WARNING, "Failed to delete attribute %s", line.attribute);
        return false;
    }
    return true;
}

} // namespace

ssize_t readchange(const VantroHandle *handle, int fd) {
    const ssize_t length = platform_read(fd, handle->read_buffer, handle->read_capacity - 1);
    if (length < 0) {
        msglog(LOG_SEVERITY_DEBUG, "KIVO read failed (%d)", errno);
        return length;
    }
    handle->read_buffer[length] = '\0';
    msglog(LOG_SEVERITY_TRACE, "KIVO msg(%d): %s", static_cast<int>(length), handle->read_buffer);
    return length;
}

ssize_t next_change(const VantroHandle *handle, EventQueue &queue, int fd) {
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

std::optional<std::string_view> object_of(std::string_view text) {
    const size_t at = text.find('@');
    const size_t end = at == text.npos ? at : text.find('\n', at);
    if (end == text.npos) {
        return std::nullopt;
    }
    return text.substr(at + 1, end - at - 1);
}

int update_dict(mosk_dict **dict, char *text) {
    msglog(LOG_SEVERITY_DEBUG, "update_dict: %s", text ? text : "NULL");
    int result = 0;
    kivo_record line{};
    for (;;) {
        switch (kivoparse(&text, nullptr, nullptr, &line, 0)) {
        case KIVO_END:
            return result;
        case KIVO_OBJECT:
            msglog(LOG_SEVERITY_TRACE, "KIVO_OBJECT: %s", line.object);
            if (!*dict) {
                *dict = mosk_dict_new();
            }
            break;
        case KIVO_OBJECT_CREATED:
            msglog(LOG_SEVERITY_TRACE, "KIVO_OBJECT_CREATED: %s", line.object);
            if (!*dict) {
                *dict = mosk_dict_new();
            }
            break;
        case KIVO_OBJECT_DELETED:
            msglog(LOG_SEVERITY_TRACE, "KIVO_OBJECT_DELETED: %s", line.object);
            mosk_dict_destroy(std::exchange(*dict, nullptr));
            break;
        case KIVO_OBJECT_TRUNCATED:
            // The following lines are all attributes of the object, also if the object was unknown.
            msglog(LOG_SEVERITY_TRACE, "KIVO_OBJECT_TRUNCATED: %s", line.object);
            mosk_dict_destroy(*dict);
            *dict = mosk_dict_new();
            break;
        case KIVO_ATTRIBUTE:
            if (!set(dict, line)) {
                result = -1;
            }
            break;
        case KIVO_ATTRIBUTE_DELETED:
            if (!remove(dict, line)) {
                result = -1;
            }
            break;
        default:
            msglog(LOG_SEVERITY_WARNING, "We got a parsing error");
            errno = EBADMSG;
            return -1;
        }
    }
}

} // namespace vantro::events
