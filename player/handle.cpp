// The life of a handle: connecting, opening and closing a player, disconnecting.
#include "player/handle.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "player/log.h"
#include "player/requests.h"

namespace vantro::player {

namespace {

// Longest change of a status object, and its NUL.
constexpr uint32_t read_buffer_size = 32768;

bool make_locks(VantroHandle &handle) {
    if (pthread_mutex_init(&handle.lock, nullptr) != 0) {
        return false;
    }
    if (pthread_mutex_init(&handle.overflow_lock, nullptr) == 0) {
        return true;
    }
    pthread_mutex_destroy(&handle.lock);
    return false;
}

// Opening and closing differ by their command alone.
bool name_request(const VantroHandle *handle, uint16_t command, const char *name,
                  const char *failure) {
    const auto length = static_cast<uint32_t>(std::strlen(name));
    const RequestHeader header = request_header(command, length + sizeof length);
    int32_t result = no_result;
    uint32_t answer_length = 0;
    if (!answered(putgetv(handle, {part(header), part(length), part(name, length)}, {part(result)},
                          answer_length))) {
        return false;
    }
    if (result == 0) {
        return true;
    }
    msglog(LOG_SEVERITY_INFO, "%s", failure);
    return false;
}

void forget_player(VantroHandle *handle) {
    std::free(handle->player_name);
    handle->player_name = nullptr;
}

} // namespace

bool require_connection(const VantroHandle *handle) {
    if (handle && handle->connection) {
        return true;
    }
    msglog(LOG_SEVERITY_INFO, "Invalid vantro handle");
    return false;
}

bool require_player(const VantroHandle *handle) {
    if (handle && handle->connection && handle->player_name) {
        return true;
    }
    msglog(LOG_SEVERITY_INFO, "Invalid vantro handle");
    return false;
}

} // namespace vantro::player

using vantro::player::msglog;

VantroHandle *vantro_connect(void) {
    auto *handle = static_cast<VantroHandle *>(std::calloc(1, sizeof(VantroHandle)));
    if (!handle) {
        errno = ENOMEM;
        msglog(LOG_SEVERITY_CRITICAL, "calloc() failed (%s)", std::strerror(ENOMEM));
        return nullptr;
    }
    handle->connection = msgclient_open(VANTRO_SERVICE_NAME, nullptr, 0);
    if (!handle->connection) {
        const vantro::player::KeepErrno keep;
        msglog(LOG_SEVERITY_WARNING, "msgclient_open failed (%s)", std::strerror(errno));
        std::free(handle);
        return nullptr;
    }
    handle->read_buffer = static_cast<char *>(std::malloc(vantro::player::read_buffer_size));
    if (!handle->read_buffer || !vantro::player::make_locks(*handle)) {
        msglog(LOG_SEVERITY_INFO, "No memory");
        msgclient_close(handle->connection);
        std::free(handle->read_buffer);
        std::free(handle);
        errno = ENOMEM;
        return nullptr;
    }
    handle->read_capacity = vantro::player::read_buffer_size;
    return handle;
}

int vantro_open(VantroHandle *handle, const char *name) {
    if (!vantro::player::require_connection(handle)) {
        errno = EINVAL;
        return -1;
    }
    if (!name || !*name) {
        msglog(LOG_SEVERITY_INFO, "player name is null or empty");
        errno = EINVAL;
        return -1;
    }
    if (strnlen(name, VANTRO_PLAYER_NAME_MAX + 1) > VANTRO_PLAYER_NAME_MAX) {
        msglog(LOG_SEVERITY_INFO, "player name is too long");
        errno = ENAMETOOLONG;
        return -1;
    }
    if (handle->player_name) {
        if (std::strcmp(handle->player_name, name) == 0) {
            msglog(LOG_SEVERITY_INFO, "The client already connected to %s", name);
            return 0;
        }
        msglog(LOG_SEVERITY_INFO, "The client is connected to %s. Close it first",
               handle->player_name);
        return -1;
    }
    const vantro::player::KeepErrno keep;
    // Before the request: a player that the service has opened must not be lost for want of memory.
    char *copy = strdup(name);
    if (!copy) {
        msglog(LOG_SEVERITY_INFO, "No memory");
        return -1;
    }
    if (!vantro::player::name_request(handle, VANTRO_COMMAND_OPEN, name, "vantro_open() failed")) {
        std::free(copy);
        return -1;
    }
    handle->player_name = copy;
    return 0;
}

int vantro_close(VantroHandle *handle, const char *name) {
    if (!vantro::player::require_connection(handle)) {
        return -1;
    }
    if (!handle->player_name) {
        msglog(LOG_SEVERITY_INFO, "The client is not connected to any players");
        return -1;
    }
    if (!name || !*name) {
        msglog(LOG_SEVERITY_INFO, "Player name is null or empty");
        return -1;
    }
    if (std::strcmp(handle->player_name, name) != 0) {
        msglog(LOG_SEVERITY_INFO, "The player is not connected to Player %s", name);
        return -1;
    }
    // Before the request and whatever becomes of it: events end where the application says so.
    if (handle->event_queue) {
        vantro_internal_destroy_evq(std::exchange(handle->event_queue, nullptr));
    }
    if (!vantro::player::name_request(handle, VANTRO_COMMAND_CLOSE, name,
                                      "vantro_close() failed")) {
        return -1;
    }
    vantro::player::forget_player(handle);
    return 0;
}

int vantro_disconnect(VantroHandle *handle) {
    if (!handle) {
        msglog(LOG_SEVERITY_INFO, "Invalid vantro handle");
        return -1;
    }
    const vantro::player::KeepErrno keep;
    if (handle->player_name) {
        vantro_close(handle, handle->player_name);
        vantro::player::forget_player(handle);
    }
    if (handle->connection) {
        msgclient_close(handle->connection);
        handle->connection = nullptr;
    }
    std::free(handle->read_buffer);
    handle->read_buffer = nullptr;
    handle->read_capacity = 0;
    pthread_mutex_destroy(&handle->overflow_lock);
    pthread_mutex_destroy(&handle->lock);
    std::free(handle);
    return 0;
}
