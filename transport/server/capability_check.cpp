#include "transport/server/capability_check.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>

#include <vantro/platform/io.h>

#include "transport/server/server.h"

namespace vantro::transport {
namespace {

int capabilities_demanded(const char *list) {
    int count = 1;
    for (; *list; list++) {
        count += *list == ',';
    }
    return count;
}

// Writes to the grantor device. A signal that interrupts this thread says nothing about the client.
ssize_t write_line(const MsgServer &server, const char *line, size_t length) REQUIRES(server_lock) {
    ssize_t granted;
    do {
        granted = platform_write(server.grantor_fd, line, length);
    } while (granted == -1 && errno == EINTR);
    return granted;
}

// Opens the device again. @return false where no grantor serves it; the next question tries again.
bool reopen_grantor(MsgServer *server) REQUIRES(server_lock) {
    const int device = platform_open(grantor_path, O_RDWR);
    if (device == -1) {
        return false;
    }
    platform_close(server->grantor_fd);
    server->grantor_fd = device;
    return true;
}

// @return how many of the capabilities in a line are granted, or -1 with errno.
ssize_t ask_grantor(MsgServer *server, const char *line, size_t length) REQUIRES(server_lock) {
    const ssize_t granted = write_line(*server, line, length);
    const bool gone = granted == -1 && errno == ECONNRESET;
    return gone && reopen_grantor(server) ? write_line(*server, line, length) : granted;
}

} // namespace

bool capabilities_granted(MsgServer *server, const MsgService &service, int32_t conn_id) {
    ipc_credentials client = {};
    if (connect_client_info(conn_id, &client, IPC_CREDENTIAL_GROUPS) == -1) {
        return false; // without credentials the client holds no capability
    }
    char *line = nullptr;
    const int length = asprintf(&line, "chkcap %u,%u,%s", client.uid, client.gid, service.options);
    if (length < 0) {
        return false;
    }
    const ssize_t granted = ask_grantor(server, line, static_cast<size_t>(length));
    std::free(line);
    return granted == capabilities_demanded(service.options);
}

} // namespace vantro::transport
