// Handles that outlive the service: a new connection, with the player open on it.
#include <cerrno>
#include <memory>
#include <utility>

#include <vantro/extras.h>
#include <vantro/platform/message.h>

#include "player/failure.h"
#include "player/log.h"
#include "player/requests.h"

namespace vantro::player {

namespace {

struct CloseConnection {
    void operator()(MsgClient *connection) const { msgclient_close(connection); }
};
using OwnedConnection = std::unique_ptr<MsgClient, CloseConnection>;

OwnedConnection connect_again(const VantroHandle *handle) {
    const int timeout_ms = handle->timeout_ms;
    const int before = timeout_ms > 0 ? ipc_set_open_timeout(timeout_ms) : 0;
    OwnedConnection connection(msgclient_open(VANTRO_SERVICE_NAME, nullptr, 0));
    if (timeout_ms > 0) {
        ipc_set_open_timeout(before);
    }
    return connection;
}

} // namespace

bool has_lost_service(const VantroHandle *handle) {
    const KeepErrno keep;
    if (!handle->reconnects) {
        return false;
    }
    const ReaderLock use(handle->connection_lock);
    return ipc_connected(handle->connection->connection) == 0;
}

// Connects without the lock: a line logged meanwhile may reach a sink that uses the same handle. If
// two threads connect at the same time, one of the connections is closed again. An unanswered
// opening or closing stays unanswered: the next one determines the state, also with another
// service.
bool be_connected(VantroHandle *handle) {
    if (!has_lost_service(handle)) {
        return true;
    }
    const int before = errno;
    OwnedConnection connection = connect_again(handle);
    const int error = connection ? 0 : errno;
    errno = before;
    if (error != 0) {
        note_failed_exchange(handle, error);
    }
    const char *const name = handle->close_unanswered ? nullptr : handle->player_name;
    if (connection && name &&
        request_by_name(connection.get(), handle, VANTRO_COMMAND_OPEN, name) != Outcome::granted) {
        connection.reset();
    }
    if (!connection) {
        msglog(LOG_SEVERITY_INFO, "Cannot connect to the service again");
        return false;
    }
    if (has_lost_service(handle)) {
        MsgClient *fresh = connection.release();
        handle->connection_lock.lock();
        if (ipc_connected(handle->connection->connection) == 0) {
            std::swap(handle->connection, fresh);
        }
        handle->connection_lock.unlock();
        connection.reset(fresh);
    }
    return true;
}

} // namespace vantro::player

using namespace vantro::player;

int vantro_set_reconnect(VantroHandle *handle, int mode) {
    if (!is_valid(handle) || (mode != VANTRO_RECONNECT_OFF && mode != VANTRO_RECONNECT_ON)) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        errno = EINVAL;
        return -1;
    }
    handle->reconnects = mode == VANTRO_RECONNECT_ON;
    return 0;
}
