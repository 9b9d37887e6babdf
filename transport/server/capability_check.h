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

// Of an open that found no service: if there is one of that name, a line about the capabilities
// of it that the client does not hold. Asks the grantor for each of them, where the line is due.
// @param name may be null.
void note_missing_capabilities(MsgServer *server, const char *name, int32_t conn_id,
                               std::optional<Refusal> &refusal) REQUIRES(server_lock);

} // namespace vantro::transport

#endif
