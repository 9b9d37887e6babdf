// Handles that outlive the service: a new connection, with the player open on it.
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include <vantro/extras.h>
#include <vantro/platform/message.h>

#include "player/failure.h"
#include "player/log.h"
#include "player/requests.h"
#include "transport/client/client.h"

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

// Opens the handle's player on a connection that is not yet the handle's. @return whether the
// service did; the failure is noted where not.
bool open_again(const VantroHandle *handle, MsgClient *connection) {
    const auto length = static_cast<uint32_t>(std::strlen(handle->player_name));
    const RequestHeader header = request_header(VANTRO_COMMAND_OPEN, length + sizeof length);
    int32_t result = no_result;
    const std::array request = {part(header), part(length), part(handle->player_name, length)};
    const iovec reply = part(result);
    transport::AnswerLength answer;
    const int status = transport::putgetv(connection, request.data(),
                                          static_cast<int>(request.size()), &reply, 1, answer, 0);
    if (status != 0) {
        note_failed_exchange(handle, status);
    } else if (result != 0) {
        note_result(result);
    }
    return status == 0 && result == 0;
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

bool be_connected(VantroHandle *handle) {
    if (!has_lost_service(handle)) {
        return true;
    }
    const int before = errno;
    handle->connection_lock.lock();
    bool is_connected = ipc_connected(handle->connection->connection) != 0; // by another thread
    int error = 0;
    if (!is_connected) {
        OwnedConnection connection = connect_again(handle);
        error = connection ? 0 : errno;
        // What the last service may have opened or closed went with it.
        std::free(std::exchange(handle->unanswered_open, nullptr));
        if (std::exchange(handle->close_unanswered, false)) {
            std::free(std::exchange(handle->player_name, nullptr));
        }
        errno = before;
        is_connected = connection && (!handle->player_name || open_again(handle, connection.get()));
        if (is_connected) {
            connection.reset(std::exchange(handle->connection, connection.release()));
        }
    }
    handle->connection_lock.unlock();
    if (error != 0) {
        note_failed_exchange(handle, error);
    }
    if (!is_connected) {
        msglog(LOG_SEVERITY_INFO, "Cannot connect to the service again");
    }
    return is_connected;
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
