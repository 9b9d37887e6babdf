#ifndef VANTRO_PLATFORM_LINUX_BASE_SOCKET_TIMEOUT_H
#define VANTRO_PLATFORM_LINUX_BASE_SOCKET_TIMEOUT_H

#include <sys/socket.h>
#include <sys/time.h>

namespace vantro::platform {

// The time limit of the calling thread's opens, in milliseconds; below 0: none. See
// ipc_set_open_timeout().
constinit inline thread_local int open_timeout_ms = -1;

// Limits how long a blocking socket connects, sends and receives: after that time they fail with
// EAGAIN. Below 0: no limit.
inline void set_socket_timeout(int socket, int timeout_ms) {
    struct timeval limit = {}; // none
    if (timeout_ms >= 0) {
        limit.tv_sec = timeout_ms / 1000;
        limit.tv_usec = timeout_ms % 1000 * 1000;
    }
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

} // namespace vantro::platform

#endif
