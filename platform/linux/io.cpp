// Opening paths, and reading and writing them.
#include <vantro/platform/io.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "platform/linux/messages/connection.h"
#include "platform/linux/messages/ids.h"
#include "platform/linux/objects/object_reader.h"
#include "platform/linux/paths/path_dispatch.h"
#include "platform/linux/runtime/platform_path.h"
#include "platform/linux/runtime/published_name.h"
#include "platform/portable/guards.h"

using namespace vantro::platform;

namespace {

// Asks the path's owner; if it refuses, closes the connection again.
int open_attached(std::string_view relative, int flags) {
    const CancelDisabled no_cancel;
    UniqueFd control = connect_to_name(relative);
    if (!control) {
        return -1;
    }
    Connections &connections = Connections::instance();
    const int descriptor = connections.open(std::move(control), NumberKind::descriptor);
    if (descriptor < 0) {
        return -1;
    }
    const PathMessage message{path_open, 0, static_cast<uint32_t>(flags & O_ACCMODE)};
    if (ipc_send_simple(descriptor, &message, sizeof message, nullptr, 0) != 0) {
        const KeepErrno keep;
        connections.remove(descriptor);
        return -1;
    }
    return descriptor;
}

} // namespace

int platform_open(const char *path, int flags) {
    if (!path) {
        return fail(EFAULT);
    }
    std::string_view relative;
    if (!is_platform_path(path, relative)) {
        return ::open(path, flags | O_CLOEXEC, 0666);
    }
    // Objects are opened with options after a question mark.
    if (relative.starts_with("kivo/") && relative.find('?') != relative.npos) {
        return open_reader(relative, flags);
    }
    return or_no_memory([=] { return open_attached(relative, flags); });
}

ssize_t platform_read(int descriptor, void *buffer, size_t length) {
    if (ObjectReader *const reader = find_reader(descriptor)) {
        return reader->read(buffer, length);
    }
    if (!Connections::instance().find(descriptor)) {
        return ::read(descriptor, buffer, length);
    }
    length = std::min<size_t>(length, PATH_MESSAGE_MAX);
    const PathMessage message{path_read, 0, static_cast<uint32_t>(length)};
    const int count = ipc_send_simple(descriptor, &message, sizeof message, buffer, length);
    return std::min<ssize_t>(count, static_cast<ssize_t>(length));
}

ssize_t platform_write(int descriptor, const void *buffer, size_t length) {
    if (find_reader(descriptor)) {
        return fail(EBADF);
    }
    if (!Connections::instance().find(descriptor)) {
        return ::write(descriptor, buffer, length);
    }
    length = std::min<size_t>(length, PATH_MESSAGE_MAX - sizeof(PathMessage));
    PathMessage message{path_write, 0, static_cast<uint32_t>(length)};
    const struct iovec parts[] = {{&message, sizeof message}, {const_cast<void *>(buffer), length}};
    return ipc_send(descriptor, parts, 2, nullptr, 0);
}

int platform_close(int descriptor) {
    if (kind_of(descriptor) != NumberKind::descriptor || descriptor < 0) {
        return fail(EBADF);
    }
    if (close_reader(descriptor)) {
        return 0;
    }
    if (const auto connection = Connections::instance().remove(descriptor)) {
        return connection->abandoned() ? fail(EBADF) : 0;
    }
    return ::close(descriptor) == 0 || errno == EINTR ? 0 : -1;
}
