// Which service a message is for, and whether its sender may open it.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>

#include <vantro/messaging.h>
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

// Writes to the grantor device. An interruption of this thread says nothing about the client.
ssize_t write_line(const MsgServer &server, const char *line, size_t length) {
    ssize_t granted;
    do {
        granted = platform_write(server.grantor_fd, line, length);
    } while (granted == -1 && errno == EINTR);
    return granted;
}

// Opens the device again. @return false where nobody serves it; the next question tries again.
bool reopen_grantor(MsgServer *server) {
    const int device = platform_open(grantor_path, O_RDWR);
    if (device == -1) {
        return false;
    }
    platform_close(server->grantor_fd);
    server->grantor_fd = device;
    return true;
}

// @return how many of the capabilities in a line are granted, or -1 with errno.
ssize_t ask_grantor(MsgServer *server, const char *line, size_t length) {
    const ssize_t granted = write_line(*server, line, length);
    const bool gone = granted == -1 && errno == ECONNRESET;
    return gone && reopen_grantor(server) ? write_line(*server, line, length) : granted;
}

// Asks the grantor device whether a client holds every capability that a service demands.
bool capabilities_granted(MsgServer *server, const MsgService &service, int32_t conn_id) {
    ipc_credentials client = {};
    if (connect_client_info(conn_id, &client, IPC_CREDENTIAL_GROUPS) == -1) {
        return false; // nobody vouches for the client, so it holds nothing
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

MsgService *service_named(MsgServer *server, const char *name, MsgContext *context) {
    MsgService *service = nullptr;
    int32_t index = 0;
    for (; index < server->services->slot_count; index++) {
        service = static_cast<MsgService *>(_array_get(server->services, index));
        if (service && std::strcmp(service->name, name) == 0) {
            break;
        }
    }
    if (index == server->services->slot_count) {
        return nullptr;
    }
    context->header->service_index = static_cast<int16_t>(index);
    context->header->open_index = 0;
    if ((server->flags & MSGSERVER_FLAG_NOCHECK) || service->options[0] == '\0' ||
        capabilities_granted(server, *service, context->info.conn_id)) {
        return service;
    }
    return nullptr;
}

// The ids must name an open of that very connection, for they are guessable and the connection is
// not; and one that was accepted, or a client that its open handler refused would be served.
MsgService *service_of_open(const MsgServer &server, const TransportHeader &header,
                            int32_t conn_id) {
    auto *service = static_cast<MsgService *>(_array_get(server.services, header.service_index));
    if (!service) {
        return nullptr;
    }
    const auto *open = static_cast<MsgOsb *>(_array_get(service->opens, header.open_index));
    return open && open->conn_id == conn_id && !open->unaccepted ? service : nullptr;
}

} // namespace

MsgService *lookup(MsgServer *server, const char *name, int32_t conn_id) {
    MsgContext *context = context_of(server);
    if (!context) {
        return nullptr;
    }
    if (conn_id != -1) {
        return service_of_open(*server, *context->header, conn_id);
    }
    return name ? service_named(server, name, context) : nullptr;
}

} // namespace vantro::transport
