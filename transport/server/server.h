// Declarations that the files of the server half share.
//
// Invariants
//  - The server lock guards the service table, every table of opens, each open's `inuse`,
//    `closed`, `unaccepted`, `conn_id`, `queue_limit`, `queued`, `pending` and `event`, and each
//    service's `open_count`.
//  - An open record is reached by its indices under the lock only. A thread that uses it after the
//    lock is released holds a reference (`inuse`). A closed record is freed when its last reference
//    is dropped, or by the sweep if it has none.
//  - Lock order: the server lock, then a path attribute record's. The `lock` members of services
//    and open records are the service's own.
//  - One handler runs with the server lock held: the close handler, during the sweep of a client
//    that is gone. Answers are sent without the lock, except those of header size (the refusal of
//    a message that is not the transport's; that an answer is held; that it is too long for a
//    get). No answer ever blocks.
#ifndef VANTRO_TRANSPORT_SERVER_SERVER_H
#define VANTRO_TRANSPORT_SERVER_SERVER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <vantro/messaging.h>

#include "transport/server/server_lock.h"
#include "transport/wire.h"

namespace vantro::transport {

// Opens of one service by one connection. A client needs one. Each open may hold answers, and a
// service has 2^15 indices, which a few clients must not use up.
inline constexpr int32_t opens_per_connection_max = 32;

// The connection of an open record whose client vanished before it was answered.
inline constexpr int32_t no_connection = -1;

// Capacities of receive buffers are multiples of this.
inline constexpr int32_t capacity_step = 1024;

// The device of the grantor.
inline constexpr char grantor_path[] = "/dev/grantor";

// The permissions that an open in path mode needs: to read and to write.
inline constexpr uint32_t open_access = PATH_ACCESS_READ | PATH_ACCESS_WRITE;

// The calling thread's receive context, or null before its first receive.
MsgContext *context_of(const MsgServer *server);

// Frees a receive context; null does nothing. Also the destructor of the server's thread key.
void destructer(void *context);

// The least multiple of capacity_step that is at least `size`.
inline int64_t round_capacity(int64_t size) {
    return (size + capacity_step - 1) / capacity_step * capacity_step;
}

// An open record in the library: the public part, then the part that services do not see.
struct OpenRecord {
    MsgOsb open;
    int32_t answers_owed; // Requests that no reply operation has begun to answer; __atomic_* only.
};

inline int32_t *answers_owed(MsgOsb *open) {
    return &reinterpret_cast<OpenRecord *>(open)->answers_owed;
}

// Called when a request goes to its handler, with the server lock held: takes the reference for its
// answer.
inline void owe_answer(MsgOsb *open) REQUIRES(server_lock) {
    open->inuse++;
    __atomic_add_fetch(answers_owed(open), 1, __ATOMIC_RELAXED);
}

// Called when a reply operation begins. Its reference is dropped last, but from here on the answer
// is not owed: the sweep must find all requests answered if a client closes and disconnects as soon
// as it has its answer.
inline void begin_answer(MsgOsb *open) {
    __atomic_sub_fetch(answers_owed(open), 1, __ATOMIC_RELEASE);
}

// The normal place of payloads: directly after the header.
inline uint8_t *payload_place(const MsgContext &context) {
    return reinterpret_cast<uint8_t *>(context.header) + header_bytes;
}

// Payload bytes that the next message may have without being cut.
inline size_t payload_capacity(const MsgContext &context) {
    return static_cast<size_t>(std::max(context.payload_size, 0));
}

// Payload bytes of the current message at `payload`. The bytes after them belong to earlier
// messages and must not be read.
inline int32_t payload_received(const MsgContext &context) {
    return std::max(context.info.msg_length - header_bytes, 0);
}

// Finds the service of the current message, with the server lock held.
// @param name of an open request: the service's name, or null if the request has none.
// @param conn_id -1 for an open, else the sender's connection id.
MsgService *lookup(MsgServer *server, const char *name, int32_t conn_id) REQUIRES(server_lock);

// Sends a client the error for which its answer could not be made; otherwise the client would wait
// forever. Sends nothing for ESRCH: then the client is gone. @return -1 with errno.
int refuse(int32_t receive_id, int error);

// Answers a message; if that fails, calls refuse(). @return 0, or -1 with errno.
int answer(int32_t receive_id, int32_t status, const iovec *parts, int count);

} // namespace vantro::transport

#endif
