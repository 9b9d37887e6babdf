// Asks the grantor which capabilities a client holds.
#ifndef VANTRO_TRANSPORT_SERVER_CAPABILITY_CHECK_H
#define VANTRO_TRANSPORT_SERVER_CAPABILITY_CHECK_H

#include <cstdint>

#include <vantro/messaging.h>

#include "transport/server/server_lock.h"

namespace vantro::transport {

// Whether the client of a connection holds every capability that a service demands. Asks the
// grantor device.
bool capabilities_granted(MsgServer *server, const MsgService &service, int32_t conn_id)
    REQUIRES(server_lock);

} // namespace vantro::transport

#endif
