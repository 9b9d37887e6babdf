// Held answers: what an open may hold for its client to fetch, and how much.
#ifndef VANTRO_TRANSPORT_SERVER_HELD_ANSWERS_H
#define VANTRO_TRANSPORT_SERVER_HELD_ANSWERS_H

#include <cstdint>

#include <vantro/messaging.h>

namespace vantro::transport {

// Answers that one open may hold besides its oldest, beyond the queue limit it was granted:
//  enough for a client whose every thread overflows at once, and no way to fill the server.
inline constexpr int32_t held_answers_max = 64;

// Bytes that those answers may have together.
inline constexpr int64_t held_bytes_max = 16 * 1024 * 1024;

// Copies an answer and holds it as the record's newest. Takes the server lock.
// @return 0, or ENOMEM: no memory, or the record already holds more than its share.
int32_t put_queue(MsgOsb *open, int32_t status, uint32_t tag, const iovec *parts, int32_t count);

// Holds an answer that is too long for its client, and tells the client so. Older answers of its
// tag, which the client gave up, make room. Where the client no longer waits nothing is held: what
// it asks next must not be answered with this. Takes the server lock, and announces with it held.
// @return 0; ENOMEM where it cannot be held, and the client was told nothing; or -1 with errno.
int32_t hold_and_announce(MsgOsb *open, int32_t receive_id, int32_t status, TransportHeader *header,
                          const iovec *parts, int32_t count);

// Answers a get, and takes the answer out of the queue where it fits. Takes the server lock.
void fetch_answer(MsgOsb *open, const MsgContext &context);

// Frees a record without references, and its held answers, with the server lock held.
void free_open(MsgOsb *open);

} // namespace vantro::transport

#endif
