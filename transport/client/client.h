// What the files of the client half share.
#ifndef VANTRO_TRANSPORT_CLIENT_CLIENT_H
#define VANTRO_TRANSPORT_CLIENT_CLIENT_H

#include <vantro/messaging.h>

namespace vantro::transport {

// Count of a reply vector: the exchange takes no reply data, not even a header.
inline constexpr int no_reply = -1;

// A header of that kind with the client's two indices.
TransportHeader request_header(const MsgClient &client, int kind);

// One exchange: the header and `send` go out, the reply's header comes back into `header` and the
// rest into `reply`.
// @return the reply status, or the error number.
int exchange(const MsgClient &client, TransportHeader *header, const iovec *send, int send_count,
             const iovec *reply, int reply_count);

// Releases what there is of the private pulse channel and marks it as gone. Keeps errno.
void release_pulse_channel(MsgClient *client);

} // namespace vantro::transport

#endif
