// The reply operations: an answer is sent directly to a waiting client, or is held for it.
#include <cerrno>
#include <climits>

#include <vantro/messaging.h>

#include "transport/headered_parts.h"
#include "transport/server/held_answers.h"
#include "transport/server/server.h"
#include "transport/wire.h"

namespace vantro::transport {

int refuse(int32_t receive_id, int error) {
    if (error != ESRCH) {
        ipc_error(receive_id, error);
    }
    errno = error;
    return -1;
}

int answer(int32_t receive_id, int32_t status, const iovec *parts, int count) {
    return ipc_replyv(receive_id, status, parts, count) == 0 ? 0 : refuse(receive_id, errno);
}

namespace {

// Notifies a client that the answer of that tag is ready. A failed notification is not repeated.
void deliver_event(MsgOsb *open, int32_t receive_id, uint32_t tag) EXCLUDES(server_lock) {
    ipc_event event;
    {
        const ServerLock lock(open->server);
        if (open->conn_id == no_connection) {
            return;
        }
        event = open->event;
    }
    event.value = static_cast<int32_t>(tag);
    ipc_deliver_event(receive_id, &event);
}

// Answers the request in `context`. The caller drops the reference.
int32_t answer_request(MsgOsb *open, MsgContext *context, int32_t status, const iovec *parts,
                       int32_t count) EXCLUDES(server_lock) {
    TransportHeader *header = context->header;
    const auto capacity = static_cast<int32_t>(header->reply_length);
    const uint64_t length = sum_parts(parts, count);
    header->reply_length = static_cast<uint32_t>(length);

    if (first_word(header) == kind_word(MSG_KIND_PUT)) {
        const int32_t result = put_queue(open, status, header->tag, parts, count);
        deliver_event(open, context->receive_id, header->tag);
        return result;
    }
    if (length > INT32_MAX) {
        return refuse(context->receive_id, EMSGSIZE);
    }
    if (static_cast<int32_t>(length) > capacity) {
        return hold_and_announce(open, context->receive_id, status, header, parts, count);
    }
    const HeaderedParts reply(header, parts, count);
    if (!reply) {
        return refuse(context->receive_id, errno);
    }
    return answer(context->receive_id, status, reply.data(), reply.count());
}

} // namespace
} // namespace vantro::transport

using namespace vantro::transport;

int32_t callout_reply(MsgOsb *open, MsgContext *context, int32_t status, const void *data,
                      int32_t length) {
    // As an unsigned number, a negative length is more than any answer may have.
    const iovec part = {const_cast<void *>(data), static_cast<uint32_t>(length)};
    return callout_replyv(open, context, status, &part, length == 0 ? 0 : 1);
}

int32_t callout_replyv(MsgOsb *open, MsgContext *context, int32_t status, const iovec *parts,
                       int32_t count) {
    begin_answer(open);
    const int32_t result = answer_request(open, context, status, parts, count);
    const int error = errno;
    _msgserver_lock_then_decr_inuse_and_release_osb_if_closed(open);
    errno = error;
    return result;
}

int32_t callout_reply2(MsgOsb *open, int32_t receive_id, uint32_t tag, int32_t status,
                       const iovec *parts, int32_t count) {
    begin_answer(open);
    const int32_t result = put_queue(open, status, tag, parts, count);
    deliver_event(open, receive_id, tag);
    _msgserver_lock_then_decr_inuse_and_release_osb_if_closed(open);
    return result;
}

int32_t _msgserver_lock_then_decr_inuse_and_release_osb_if_closed(MsgOsb *open) {
    const ServerLock lock(open->server); // keeps the server: the record may be freed below
    open->inuse--;
    if (open->inuse == 0 && open->closed) {
        free_open(open);
    }
    return 0;
}
