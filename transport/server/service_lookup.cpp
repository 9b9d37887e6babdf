// Finds the service of a message.
#include <cstring>

#include <vantro/messaging.h>

#include "transport/server/capability_check.h"
#include "transport/server/server.h"

namespace vantro::transport {
namespace {

MsgService *service_named(MsgServer *server, const char *name, MsgContext *context)
    REQUIRES(server_lock) {
    for (int32_t index = 0; index < server->services->slot_count; index++) {
        auto *const service = static_cast<MsgService *>(_array_get(server->services, index));
        if (!service || std::strcmp(service->name, name) != 0) {
            continue;
        }
        context->header->service_index = static_cast<int16_t>(index);
        context->header->open_index = 0;
        const bool admitted = (server->flags & MSGSERVER_FLAG_NOCHECK) ||
                              service->options[0] == '\0' ||
                              capabilities_granted(server, *service, context->info.conn_id);
        return admitted ? service : nullptr;
    }
    return nullptr;
}

// The indices must name an open of this connection: a client can guess indices, but not another
// client's connection. The open must be accepted, or a client that the open handler refused would
// be served.
MsgService *service_of_open(const MsgServer &server, const TransportHeader &header, int32_t conn_id)
    REQUIRES(server_lock) {
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
