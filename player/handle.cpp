// The life of a handle: connecting, opening and closing a player, disconnecting.
#include "player/handle.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "player/failure.h"
#include "player/log.h"
#include "player/requests.h"

namespace vantro::player {

namespace {

// The longest change of an object, with its NUL.
constexpr uint32_t read_buffer_size = 32768;

void free_handle(VantroHandle *handle) {
    handle->~VantroHandle();
    std::free(handle);
}

void end_events(VantroHandle *handle) {
    vantro_internal_destroy_evq(handle->event_queue.exchange(nullptr));
}

// The player of an unanswered opening or closing, which may or may not be open in the service; or
// null.
const char *doubtful_player(const VantroHandle *handle) {
    return handle->close_unanswered ? handle->player_name : handle->unanswered_open;
}

// Closes the player that is open or doubtful, if one is. @return whether none is open.
bool close_player(VantroHandle *handle) {
    const char *doubtful = doubtful_player(handle);
    const char *const name = doubtful ? doubtful : handle->player_name;
    if (!name) {
        return true;
    }
    switch (request_by_name(handle->connection, handle, VANTRO_COMMAND_CLOSE, name)) {
    case Outcome::granted:
        break;
    case Outcome::refused:
        // A service refuses to close a player that is not open.
        if (!doubtful) {
            msglog(LOG_SEVERITY_INFO, "vantro_close() failed");
            return false;
        }
        break;
    case Outcome::unanswered:
        handle->close_unanswered = handle->player_name != nullptr;
        return false;
    }
    forget_player(handle);
    return true;
}

// Opens a player if none is open, or if it is unclear whether this one is. @return whether it is
// open.
bool open_player(VantroHandle *handle, const char *name) {
    // Before the request, so that a lack of memory cannot lose a player that the service has
    // opened.
    const int before = errno;
    char *copy = strdup(name);
    errno = before;
    if (!copy) {
        note_failure(VANTRO_FAILURE_NO_MEMORY, ENOMEM);
        msglog(LOG_SEVERITY_INFO, "No memory");
        return false;
    }
    const Outcome outcome = request_by_name(handle->connection, handle, VANTRO_COMMAND_OPEN, name);
    if (outcome == Outcome::unanswered && handle->player_name) {
        std::free(copy); // The player stays doubtful.
        return false;
    }
    forget_player(handle);
    (outcome == Outcome::unanswered ? handle->unanswered_open : handle->player_name) = copy;
    if (outcome == Outcome::refused) {
        msglog(LOG_SEVERITY_INFO, "vantro_open() failed");
        std::free(std::exchange(handle->player_name, nullptr));
    }
    return outcome == Outcome::granted;
}

// Whether a name can be a player's. If not, logs that and sets errno.
bool check_name(const char *name) {
    if (!name || !*name) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "player name is null or empty");
        errno = EINVAL;
        return false;
    }
    if (strnlen(name, VANTRO_PLAYER_NAME_MAX + 1) > VANTRO_PLAYER_NAME_MAX) {
        note_failure(VANTRO_FAILURE_INVALID, ENAMETOOLONG);
        msglog(LOG_SEVERITY_INFO, "player name is too long");
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

} // namespace

void forget_player(VantroHandle *handle) {
    end_events(handle);
    std::free(std::exchange(handle->player_name, nullptr));
    std::free(std::exchange(handle->unanswered_open, nullptr));
    handle->close_unanswered = false;
}

bool is_valid(const VantroHandle *handle) {
    if (handle && handle->connection) {
        return true;
    }
    note_failure(VANTRO_FAILURE_INVALID, EINVAL);
    msglog(LOG_SEVERITY_INFO, "Invalid vantro handle");
    return false;
}

bool require_connection(VantroHandle *handle) {
    return is_valid(handle) && be_connected(handle);
}

bool require_player(VantroHandle *handle) {
    if (handle && handle->connection && handle->player_name) {
        return be_connected(handle);
    }
    note_failure(VANTRO_FAILURE_INVALID, EINVAL);
    msglog(LOG_SEVERITY_INFO, "Invalid vantro handle");
    return false;
}

} // namespace vantro::player

using namespace vantro::player;

namespace vantro::player {

VantroHandle *connect_handle(int no_memory_severity) {
    void *memory = std::calloc(1, sizeof(VantroHandle));
    if (!memory) {
        errno = ENOMEM;
        note_failure(VANTRO_FAILURE_NO_MEMORY, ENOMEM);
        msglog(no_memory_severity, "calloc() failed (%s)", std::strerror(ENOMEM));
        return nullptr;
    }
    auto *handle = new (memory) VantroHandle();
    handle->connection = msgclient_open(VANTRO_SERVICE_NAME, nullptr, 0);
    if (!handle->connection) {
        const KeepErrno keep;
        note_failed_exchange(nullptr, errno);
        msglog(LOG_SEVERITY_WARNING, "msgclient_open failed (%s)",
               errno == EPROTONOSUPPORT ? "the service is of another release than this library"
                                        : std::strerror(errno));
        free_handle(handle);
        return nullptr;
    }
    handle->read_buffer = static_cast<char *>(std::malloc(read_buffer_size));
    if (!handle->read_buffer) {
        note_failure(VANTRO_FAILURE_NO_MEMORY, ENOMEM);
        msglog(LOG_SEVERITY_INFO, "No memory");
        msgclient_close(handle->connection);
        free_handle(handle);
        errno = ENOMEM;
        return nullptr;
    }
    handle->read_capacity = read_buffer_size;
    return handle;
}

} // namespace vantro::player

VantroHandle *vantro_connect(void) {
    return connect_handle(LOG_SEVERITY_CRITICAL);
}

int vantro_open(VantroHandle *handle, const char *name) {
    if (!is_valid(handle)) {
        errno = EINVAL;
        return -1;
    }
    if (!check_name(name) || !be_connected(handle)) {
        return -1;
    }
    const char *doubtful = doubtful_player(handle);
    if (handle->player_name && !doubtful) {
        if (std::strcmp(handle->player_name, name) == 0) {
            msglog(LOG_SEVERITY_INFO, "The client already connected to %s", name);
            return 0;
        }
        note_failure(VANTRO_FAILURE_INVALID, EBUSY);
        msglog(LOG_SEVERITY_INFO, "The client is connected to %s. Close it first",
               handle->player_name);
        return -1;
    }
    // If the service has the doubtful player open, it would refuse this one.
    if (doubtful && std::strcmp(doubtful, name) != 0 && !close_player(handle)) {
        return -1;
    }
    return open_player(handle, name) ? 0 : -1;
}

int vantro_close(VantroHandle *handle, const char *name) {
    if (!is_valid(handle)) {
        return -1;
    }
    const char *open = handle->player_name ? handle->player_name : handle->unanswered_open;
    if (!open) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "The client is not connected to any players");
        return -1;
    }
    if (!name || !*name) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "Player name is null or empty");
        return -1;
    }
    if (std::strcmp(open, name) != 0) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "The player is not connected to Player %s", name);
        return -1;
    }
    // Before the request, and whatever its result: events end when the application closes.
    end_events(handle);
    if (has_lost_service(handle)) {
        forget_player(handle); // The service that had it open is gone.
        return 0;
    }
    return close_player(handle) ? 0 : -1;
}

int vantro_disconnect(VantroHandle *handle) {
    if (!handle) {
        msglog(LOG_SEVERITY_INFO, "Invalid vantro handle");
        return -1;
    }
    const KeepErrno keep;
    if (handle->connection && (handle->player_name || handle->unanswered_open) &&
        !has_lost_service(handle)) {
        end_events(handle);
        close_player(handle);
    }
    forget_player(handle);
    if (handle->connection) {
        msgclient_close(handle->connection);
        handle->connection = nullptr;
    }
    std::free(handle->read_buffer);
    handle->read_buffer = nullptr;
    handle->read_capacity = 0;
    free_handle(handle);
    return 0;
}
