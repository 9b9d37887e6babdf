#include "transport/server/capability_check.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

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

// Writes to the grantor device. If a signal interrupts the write, it is repeated, since that says
// nothing about the client.
ssize_t write_line(const MsgServer &server, const char *line, size_t length) REQUIRES(server_lock) {
    ssize_t granted;
    do {
        granted = platform_write(server.grantor_fd, line, length);
    } while (granted == -1 && errno == EINTR);
    return granted;
}

// Opens the device again. @return false if no grantor serves it; the next query tries again.
bool reopen_grantor(MsgServer *server) REQUIRES(server_lock) {
    const int device = platform_open(grantor_path, O_RDWR);
    if (device == -1) {
        return false;
    }
    platform_close(server->grantor_fd);
    server->grantor_fd = device;
    return true;
}

// @return the number of granted capabilities in a line, or -1 with errno.
ssize_t ask_grantor(MsgServer *server, const char *line, size_t length) REQUIRES(server_lock) {
    const ssize_t granted = write_line(*server, line, length);
    const bool gone = granted == -1 && errno == ECONNRESET;
    return gone && reopen_grantor(server) ? write_line(*server, line, length) : granted;
}

// @return the number of the capabilities that a client holds, or -1 with errno.
ssize_t count_granted(MsgServer *server, const ipc_credentials &client, const char *capabilities,
                      int length) REQUIRES(server_lock) {
    char *line = nullptr;
    const int line_length =
        asprintf(&line, "chkcap %u,%u,%.*s", client.uid, client.gid, length, capabilities);
    if (line_length < 0) {
        errno = ENOMEM;
        return -1;
    }
    const ssize_t granted = ask_grantor(server, line, static_cast<size_t>(line_length));
    const int error = errno;
    std::free(line);
    errno = error;
    return granted;
}

} // namespace

bool capabilities_granted(MsgServer *server, const MsgService &service, int32_t conn_id) {
    ipc_credentials client = {};
    if (connect_client_info(conn_id, &client, IPC_CREDENTIAL_GROUPS) == -1) {
        return false; // a client without credentials holds no capability
    }
    return count_granted(server, client, service.options,
                         static_cast<int>(std::strlen(service.options))) ==
           capabilities_demanded(service.options);
}

void note_missing_capabilities(MsgServer *server, const char *name, int32_t conn_id,
                               std::optional<Refusal> &refusal) {
    const MsgService *service = nullptr;
    for (int32_t i = 0; name && i < server->services->slot_count && !service; i++) {
        const auto *each = static_cast<const MsgService *>(_array_get(server->services, i));
        service = each && std::strcmp(each->name, name) == 0 ? each : nullptr;
    }
    ipc_credentials client = {};
    if (!service || connect_client_info(conn_id, &client, 0) == -1) {
        return;
    }
    refusal.emplace(client, service->name);
    const char *separator = "it does not hold the capability ";
    for (const char *each = service->options; refusal->due() && each;) {
        const char *const comma = std::strchr(each, ',');
        const int length = static_cast<int>(comma ? comma - each : std::strlen(each));
        const ssize_t granted = count_granted(server, client, each, length);
        if (granted == -1) {
            refusal->add("%s%s cannot be asked: %s", separator[0] == 'i' ? "" : "; ", grantor_path,
                         std::strerror(errno));
            return;
        }
        if (granted != 1) {
            refusal->add("%s\"%.*s\"", std::exchange(separator, ", "), length, each);
        }
        each = comma ? comma + 1 : nullptr;
    }
}

} // namespace vantro::transport
