#include "events/descriptor.h"

#include <cstddef>

#include <vantro/platform/notify.h>

#include "events/changes.h"

namespace vantro::events {

namespace {

// Limits the loop in settle(): a publisher that publishes as fast as it is read must not delay a
// call without end.
constexpr int looks_max = 16;

} // namespace

// A change of "state" is reported from that object's own file, so the file of all objects may
// contain changes of it that have already been reported.
bool has_next(const VantroHandle *handle, EventQueue &queue) {
    if (queue.is_away) {
        return false;
    }
    for (size_t read = 0; read < pass_bytes_max;) {
        if (has_unreported(queue)) {
            return true;
        }
        const ssize_t length = next_change(handle, queue, queue.all_fd);
        if (length <= 0) {
            return length < 0;
        }
        const auto size = static_cast<size_t>(length);
        const auto name = object_of({handle->read_buffer, size});
        if (name && name != state_object) {
            queue.unapplied_fd = queue.all_fd;
        }
        read += size + text_overhead;
    }
    return true;
}

bool settle(const VantroHandle *handle, EventQueue &queue, bool succeeded) {
    const KeepErrno keep;
    bool more = queue.is_away && !succeeded; // reconnecting must be tried again
    for (int look = 0; look < looks_max && !more; ++look) {
        more = has_next(handle, queue);
        if (!more && notify_settle(queue.all_fd) == 0) {
            return false;
        }
    }
    notify_wake(queue.all_fd);
    return true;
}

} // namespace vantro::events
