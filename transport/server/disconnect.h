// The sweep, which closes the opens of a client that has disconnected.
//
// The platform notices the end of the connection, frees its sockets, and sends the server a pulse
// (platform/linux/messages/server.cpp). dispatch.cpp calls the sweep at that pulse.
#ifndef VANTRO_TRANSPORT_SERVER_DISCONNECT_H
#define VANTRO_TRANSPORT_SERVER_DISCONNECT_H

#include <cstdint>

#include <vantro/messaging.h>

#include "transport/server/server_lock.h"

namespace vantro::transport {

// Closes every open of a connection that is gone, with the server lock held. Close handlers run
// with the lock held too.
void close_opens_of(MsgServer *server, int32_t conn_id) REQUIRES(server_lock);

} // namespace vantro::transport

#endif
