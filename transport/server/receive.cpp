// Receiving: each server thread's context and its buffer, which grows for long payloads.
//
// Nothing here may be noexcept: a thread can be cancelled while it waits, and the unwinding frees
// its context through the thread key.
#include <cerrno>
#include <climits>
#include <cstdlib>

#include <vantro/messaging.h>

#include "transport/server/server.h"
#include "transport/wire.h"

namespace vantro::transport {

MsgContext *context_of(const MsgServer *server) {
    return static_cast<MsgContext *>(pthread_getspecific(server->key));
}

void destructer(void *context) {
    auto *mine = static_cast<MsgContext *>(context);
    if (!mine) {
        return;
    }
    std::free(mine->header);
    path_context_free(mine->framework_context);
    std::free(mine);
}

namespace {

// Fills an empty context. @return false if there is no memory.
bool fill_context(MsgContext *context, MsgServer *server) {
    const int64_t capacity = round_capacity(__atomic_load_n(&server->recv_size, __ATOMIC_RELAXED));
    if (capacity > INT32_MAX - header_bytes) {
        return false;
    }
    if (server->flags & MSGSERVER_FLAG_PATH) {
        context->framework_context = path_context_alloc(server->dispatch);
        if (!context->framework_context) {
            return false;
        }
    }
    context->payload_size = static_cast<int32_t>(capacity);
    context->header = static_cast<TransportHeader *>(std::malloc(size_t(capacity) + header_bytes));
    if (!context->header) {
        return false;
    }
    context->payload = payload_place(*context);
    return pthread_setspecific(server->key, context) == 0;
}

MsgContext *make_context(MsgServer *server) {
    auto *context = static_cast<MsgContext *>(std::calloc(1, sizeof(MsgContext)));
    if (!context || !fill_context(context, server)) {
        destructer(context);
        errno = ENOMEM;
        return nullptr;
    }
    return context;
}

int receive_into(MsgContext *context, int channel) {
    const size_t capacity = payload_capacity(*context);
    if (context->payload == payload_place(*context)) {
        const iovec whole = {context->header, capacity + header_bytes};
        return ipc_receive(channel, &whole, 1, &context->info);
    }
    const iovec parts[] = {{context->header, header_bytes}, {context->payload, capacity}};
    return ipc_receive(channel, parts, 2, &context->info);
}

// Whether the current message is a request with a payload of any length.
bool carries_payload(const MsgContext &context) {
    if (context.receive_id <= 0 || context.info.msg_length < header_bytes) {
        return false;
    }
    const uint16_t word = first_word(context.header);
    return word == kind_word(MSG_KIND_PUTGET) || word == kind_word(MSG_KIND_PUT);
}

// Answers the current message with an error, so that there is nothing to dispatch. @return -1.
int refuse(MsgContext *context, int error) {
    ipc_error(context->receive_id, error);
    context->receive_id = -1;
    errno = error;
    return -1;
}

// Ensures that the payload is as long as the header states. @return 0; or -1 if the client was
// answered with an error.
int complete_payload(MsgServer *server, MsgContext *context) {
    const int64_t stated = context->header->send_length;
    // Refused before the buffer grows: a false length must cost no memory, and bytes of earlier
    // messages in the buffer must not count as this message's.
    if (stated > int64_t(context->info.total_length) - header_bytes) {
        return refuse(context, EIO);
    }
    if (stated <= context->payload_size) {
        return 0;
    }
    const int64_t wanted = round_capacity(stated);
    if (wanted > INT32_MAX) {
        return refuse(context, EMSGSIZE);
    }
    if (msgserver_growmsg(server, static_cast<int32_t>(wanted)) == -1) {
        return refuse(context, errno);
    }
    const ssize_t count =
        ipc_read(context->receive_id, context->payload, static_cast<size_t>(stated), header_bytes);
    if (count == -1) {
        return refuse(context, errno);
    }
    return count < stated ? refuse(context, EIO) : 0;
}

} // namespace
} // namespace vantro::transport

using namespace vantro::transport;

int32_t msgserver_receive(MsgServer *server) {
    MsgContext *context = context_of(server);
    if (!context && !(context = make_context(server))) {
        return -1;
    }
    context->receive_id =
        receive_into(context, __atomic_load_n(&server->channel, __ATOMIC_RELAXED));
    if (context->receive_id < 0) {
        return -1;
    }
    if (carries_payload(*context) && complete_payload(server, context) == -1) {
        return -1;
    }
    return context->receive_id;
}

int32_t msgserver_growmsg(MsgServer *server, int32_t size) {
    MsgContext *context = context_of(server);
    if (!context) {
        errno = EINVAL;
        return -1;
    }
    if (size <= context->payload_size) {
        return context->payload_size;
    }
    if (context->payload != payload_place(*context) || size > server->max_msg_size) {
        errno = EMSGSIZE;
        return -1;
    }
    void *buffer = std::realloc(context->header, size_t(size) + header_bytes);
    if (!buffer) {
        return -1;
    }
    context->header = static_cast<TransportHeader *>(buffer);
    context->payload = payload_place(*context);
    context->payload_size = size;
    return size;
}

int32_t msgserver_thread_loop(MsgServer *server) {
    while (__atomic_load_n(&server->stop, __ATOMIC_ACQUIRE) == 0) {
        if (msgserver_receive(server) != -1) {
            msgserver_dispatch(server);
        }
    }
    MsgContext *context = context_of(server);
    pthread_setspecific(server->key, nullptr);
    destructer(context);
    return 0;
}
