// Time limits for a handle's waits for the service.
#include <algorithm>
#include <cerrno>

#include <vantro/extras.h>
#include <vantro/platform/message.h>

#include "player/failure.h"
#include "player/handle.h"
#include "player/log.h"

using namespace vantro::player;

VantroHandle *vantro_connect_timed(int timeout_ms) {
    if (timeout_ms == 0) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        errno = EINVAL;
        return nullptr;
    }
    const int before = ipc_set_open_timeout(timeout_ms);
    VantroHandle *const handle = connect_handle(LOG_SEVERITY_INFO);
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
    // Another thread may reconnect the handle.
    const vantro::ReaderLock use(handle->connection_lock);
    if (ipc_set_timeout(handle->connection->connection, timeout_ms) != 0) {
        note_failure(VANTRO_FAILURE_INVALID, errno);
        return -1;
    }
    handle->timeout_ms = std::max(timeout_ms, 0);
    return 0;
}
