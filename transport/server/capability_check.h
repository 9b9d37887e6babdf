// Asks the grantor which capabilities a client holds.
#ifndef VANTRO_TRANSPORT_SERVER_CAPABILITY_CHECK_H
#define VANTRO_TRANSPORT_SERVER_CAPABILITY_CHECK_H

#include <cstdint>
#include <optional>

#include <vantro/messaging.h>

#include "transport/server/refusals.h"
#include "transport/server/server_lock.h"

namespace vantro::transport {

// Whether the client of a connection holds every capability that a service demands. Asks the
// grantor device.
bool capabilities_granted(MsgServer *server, const MsgService &service, int32_t conn_id)
    REQUIRES(server_lock);

// Called when an open found no service. If there is a service of that name, logs which of its
// capabilities the client does not hold. If the line is due, asks the grantor for each of them.
// @param name may be null.
void note_missing_capabilities(MsgServer *server, const char *name, int32_t conn_id,
                               std::optional<Refusal> &refusal) REQUIRES(server_lock);

} // namespace vantro::transport

#endif
