// Held answers: answers that an open keeps until its client fetches them, and their limits for each
// open. held_by_user.h limits those of all opens of a user.
#ifndef VANTRO_TRANSPORT_SERVER_HELD_ANSWERS_H
#define VANTRO_TRANSPORT_SERVER_HELD_ANSWERS_H

#include <cstdint>

#include <vantro/messaging.h>

#include "transport/server/server_lock.h"

namespace vantro::transport {

// The number of answers that one open may hold besides its oldest, beyond the queue limit it was
// granted. This is enough for a client whose threads all overflow at once, and too few to fill the
// server's memory.
inline constexpr int32_t held_answers_max = 64;

// The total bytes of those answers.
inline constexpr int64_t held_bytes_max = 16 * 1024 * 1024;

// Copies an answer and holds it as the record's newest. Takes the server lock.
// @return 0, or ENOMEM: no memory, or the record already holds more than its share.
int32_t put_queue(MsgOsb *open, int32_t status, uint32_t tag, const iovec *parts, int32_t count)
    EXCLUDES(server_lock);

// Holds an answer that is too long for its client, and announces it to the client. To make room,
// drops older answers of its tag, which the client has given up. If the client no longer waits,
// holds nothing: its next request could get this answer. Takes the server lock, and announces with
// it held.
// @return 0; ENOMEM if the answer cannot be held and nothing was sent to the client; or -1 with
//   errno.
int32_t hold_and_announce(MsgOsb *open, int32_t receive_id, int32_t status, TransportHeader *header,
                          const iovec *parts, int32_t count) EXCLUDES(server_lock);

// Answers a get; an answer that fits into the client's area leaves the queue. Takes the server
// lock.
void fetch_answer(MsgOsb *open, const MsgContext &context) EXCLUDES(server_lock);

// Frees a record without references, and its held answers, with the server lock held.
void free_open(MsgOsb *open) REQUIRES(server_lock);

} // namespace vantro::transport

#endif
