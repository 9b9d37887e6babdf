// Declarations that the files of the client half share.
#ifndef VANTRO_TRANSPORT_CLIENT_CLIENT_H
#define VANTRO_TRANSPORT_CLIENT_CLIENT_H

#include <vantro/messaging.h>

namespace vantro::transport {

// A count of a reply vector: the exchange takes no reply data, not even a header.
inline constexpr int no_reply = -1;

// A header of that kind with the client's two indices.
TransportHeader request_header(const MsgClient &client, int kind);

// One exchange: sends the header and `send`; the reply's header is stored in `header`, the rest in
// `reply`.
// @param received if not null, receives the number of bytes placed in `reply`; 0 on failure.
// @return the reply status, or the error number.
int exchange(const MsgClient &client, TransportHeader *header, const iovec *send, int send_count,
             const iovec *reply, int reply_count, uint32_t *received = nullptr);

// Bytes of an answer. A service may state more than it sends.
struct AnswerLength {
    uint32_t stated = 0;
    uint32_t received = 0; // placed in the caller's parts
};

// msgclient_putgetv() and msgclient_getv() for callers that must know both lengths.
int putgetv(MsgClient *client, const iovec *send, int send_count, const iovec *reply,
            int reply_count, AnswerLength &length, uint16_t code);
int getv(MsgClient *client, uint32_t tag, const iovec *reply, int reply_count, AnswerLength &length,
         uint16_t code);

// Releases the private pulse channel and its connection, if they exist. Keeps errno.
void release_pulse_channel(MsgClient *client);

} // namespace vantro::transport

#endif
