// Time limits for what a handle asks the service.
#include <algorithm>
#include <cerrno>

#include <vantro/extras.h>
#include <vantro/platform/message.h>

#include "player/handle.h"

using namespace vantro::player;

VantroHandle *vantro_connect_timed(int timeout_ms) {
    if (timeout_ms == 0) {
        errno = EINVAL;
        return nullptr;
    }
    const int before = ipc_set_open_timeout(timeout_ms);
    VantroHandle *const handle = connect_handle();
    ipc_set_open_timeout(before);
    if (handle) {
        handle->timeout_ms = std::max(timeout_ms, 0);
    }
    return handle;
}

int vantro_set_timeout(VantroHandle *handle, int timeout_ms) {
    if (!is_valid(handle)) {
        errno = EINVAL;
        return -1;
    }
    const vantro::ReaderLock use(handle->connection_lock); // another thread may reconnect it
    if (ipc_set_timeout(handle->connection->connection, timeout_ms) != 0) {
        return -1;
    }
    handle->timeout_ms = std::max(timeout_ms, 0);
    return 0;
}
