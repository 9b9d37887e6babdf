// Dispatch: one message or pulse that a server thread has received, from lookup to answer.
//
// Dispatching begins with the server lock held, and releases it before it calls a handler or
// answers; comments name the exceptions.
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>

#include <vantro/messaging.h>

#include "transport/server/access.h"
#include "transport/server/capability_check.h"
#include "transport/server/disconnect.h"
#include "transport/server/held_answers.h"
#include "transport/server/server.h"
#include "transport/wire.h"

namespace vantro::transport {
namespace {

// The current message of a server thread.
struct Dispatch {
    MsgServer *server;
    MsgContext *context;
    ServerLock &lock;

    bool path_mode() const { return server->flags & MSGSERVER_FLAG_PATH; }
    bool logs_refusals() const { return server->flags & MSGSERVER_FLAG_LOG_REFUSALS; }
    int receive_id() const { return context->receive_id; }

    // Answers with an error, without the lock.
    void refuse(int error) const RELEASE(server_lock) {
        lock.release();
        ipc_error(receive_id(), error);
    }

    // The same, with a line in the log first.
    void refuse(int error, const std::optional<Refusal> &refusal) const RELEASE(server_lock) {
        lock.release();
        if (refusal) {
            refusal->log();
        }
        ipc_error(receive_id(), error);
    }

    void accept() const { ipc_reply(receive_id(), 0, nullptr, 0); }
};

// The reference that a dispatch step holds of its open record, dropped at the step's end.
class StepReference {
  public:
    explicit StepReference(MsgOsb *open) : open_(open) {}
    ~StepReference() EXCLUDES(server_lock) {
        _msgserver_lock_then_decr_inuse_and_release_osb_if_closed(open_);
    }

    StepReference(const StepReference &) = delete;
    StepReference &operator=(const StepReference &) = delete;

  private:
    MsgOsb *open_;
};

// Points the path framework to the current message.
path_context *framework_view(const Dispatch &now) {
    path_context *framework = now.context->framework_context;
    framework->receive_id = now.context->receive_id;
    framework->info = now.context->info;
    return framework;
}

void dispatch_pulse(const Dispatch &now) RELEASE(server_lock) {
    ipc_pulse pulse;
    std::memcpy(&pulse, now.context->header, sizeof pulse);
    if (pulse.code == PULSE_CODE_DISCONNECT) {
        close_opens_of(now.server, pulse.conn_id);
        if (!now.path_mode()) { // in path mode the framework must first release its resources
            connect_detach(pulse.conn_id);
        }
    }
    now.lock.release();
    if (now.path_mode()) {
        path_context *framework = framework_view(now);
        std::memcpy(framework->message, &pulse, sizeof pulse);
        framework->message_length = sizeof pulse;
        path_dispatch_handle(framework);
    }
}

// Copies the current message into the framework's buffer. @return 0, or -1 with errno.
int copy_to_framework(const MsgContext &context, path_context *framework) {
    const size_t length =
        std::min(static_cast<size_t>(context.info.msg_length), framework->message_max);
    if (length >= payload_capacity(context) + header_bytes) {
        // The message may be longer than the receive buffer.
        const ssize_t count =
            ipc_read(context.receive_id, framework->message, framework->message_max, 0);
        if (count == -1) {
            return -1;
        }
        framework->message_length = static_cast<size_t>(count);
        return 0;
    }
    const size_t head = std::min(length, size_t(header_bytes));
    std::memcpy(framework->message, context.header, head);
    if (length > head) {
        std::memcpy(framework->message + head, context.payload, length - head);
    }
    framework->message_length = length;
    return 0;
}

// Handles a message that is not the transport's. In path mode the framework gets it; otherwise it
// is refused.
void dispatch_foreign(const Dispatch &now) RELEASE(server_lock) {
    if (!now.path_mode()) {
        ipc_error(now.receive_id(), ENOSYS); // with the lock held: an error never blocks
        now.lock.release();
        return;
    }
    now.lock.release();
    path_context *framework = framework_view(now);
    if (copy_to_framework(*now.context, framework) == -1) {
        ipc_error(now.receive_id(), errno);
        return;
    }
    path_dispatch_handle(framework);
}

bool is_transport(const MsgContext &context) {
    if (context.info.msg_length < header_bytes) {
        return false;
    }
    const uint16_t word = first_word(context.header);
    return word >= kind_word(MSG_KIND_OPEN) && word <= kind_word(MSG_KIND_GET);
}

// The name in an open request, or null if no NUL ends it within the bytes received.
const char *requested_name(const MsgContext &context) {
    const auto received = static_cast<size_t>(payload_received(context));
    return static_cast<const char *>(std::memchr(context.payload, '\0', received) ? context.payload
                                                                                  : nullptr);
}

// @return 0, or the error number that refuses the open.
int check_access(const Dispatch &now, const MsgService &service, std::optional<Refusal> &refusal)
    REQUIRES(server_lock) {
    ipc_credentials client = {};
    const int32_t conn_id = now.context->info.conn_id;
    if (connect_client_info(conn_id, &client, IPC_CREDENTIAL_GROUPS) == -1) {
        return EACCES;
    }
    // With its own view of the message, the framework finds all groups of the client.
    return check_path_access(framework_view(now), service.attr, open_access, client,
                             now.logs_refusals() ? service.name : nullptr, refusal);
}

bool has_too_many_opens(const MsgService &service, int32_t conn_id) REQUIRES(server_lock) {
    int32_t count = 0;
    for (int32_t i = 0; i < service.opens->slot_count; i++) {
        const auto *open = static_cast<MsgOsb *>(_array_get(service.opens, i));
        count += open && open->conn_id == conn_id;
    }
    return count >= opens_per_connection_max;
}

// Makes the open record, with one reference. @return null if there is no room for it.
MsgOsb *make_open(const Dispatch &now, MsgService *service) REQUIRES(server_lock) {
    const int32_t conn_id = now.context->info.conn_id;
    if (has_too_many_opens(*service, conn_id)) {
        return nullptr;
    }
    const int32_t index = _array_add(service->opens, sizeof(OpenRecord));
    if (index < 0) {
        return nullptr;
    }
    if (index > INT16_MAX) { // the client could not name it
        _array_del(service->opens, index);
        return nullptr;
    }
    now.context->header->open_index = static_cast<int16_t>(index);
    service->open_count++;
    auto *open = static_cast<MsgOsb *>(_array_get(service->opens, index));
    open->conn_id = conn_id;
    open->index = index;
    open->server = now.server;
    open->service_name = service->name;
    open->service = service;
    open->inuse = 1;
    open->unaccepted = service->open_cb != nullptr;
    pthread_mutex_init(&open->lock, nullptr);
    return open;
}

void dispatch_open(const Dispatch &now, MsgService *service) RELEASE(server_lock) {
    if (service->attr) {
        std::optional<Refusal> refusal;
        const int refused = check_access(now, *service, refusal);
        if (refused != 0) {
            return now.refuse(refused, refusal);
        }
    }
    MsgOsb *open = make_open(now, service);
    if (!open) {
        return now.refuse(ENOMEM);
    }
    now.lock.release();
    const StepReference reference(open);
    if (service->open_cb) {
        const int32_t refused = service->open_cb(open, now.context, service);
        // A refused record stays until its connection is gone. Its close handler runs then.
        if (refused != 0) {
            ipc_error(now.receive_id(), refused);
            return;
        }
        // If a handler answered itself, it has refused, whatever it returned: the client does not
        // know this open.
        now.lock.take();
        open->unaccepted = !ipc_waiting(now.receive_id());
        now.lock.release();
    }
    ipc_reply(now.receive_id(), 0, now.context->header, header_bytes);
}

void dispatch_close(const Dispatch &now, MsgService *service, MsgOsb *open) RELEASE(server_lock) {
    if (open->closed) {
        return now.refuse(ENOENT);
    }
    service->open_count--;
    open->closed = 1;
    now.lock.release();
    if (service->close_cb) {
        service->close_cb(open, now.context, service);
    }
    now.accept();
}

void dispatch_notify(const Dispatch &now, MsgOsb *open) RELEASE(server_lock) {
    if (payload_received(*now.context) < event_bytes) {
        return now.refuse(EINVAL);
    }
    if (!ipc_waiting(now.receive_id())) {
        // The client has given up this registration. It may have registered again, and another
        // thread may have handled that: the newer registration must stay.
        return now.refuse(ECANCELED);
    }
    const auto wanted = static_cast<int32_t>(now.context->header->reply_length);
    open->queue_limit = std::min(std::max(wanted, 1), now.server->queue_max);
    std::memcpy(&open->event, now.context->payload, sizeof open->event);
    now.lock.release();
    now.accept();
}

void dispatch_putget(const Dispatch &now, MsgService *service, MsgOsb *open) RELEASE(server_lock) {
    owe_answer(open);
    now.lock.release();
    service->request_cb(open, now.context, service);
}

// Whether too many notifications wait for the client to promise another one.
bool takes_no_notifications(const Dispatch &now, const MsgOsb &open) REQUIRES(server_lock) {
    return ipc_check_event(now.receive_id(), &open.event) == -1 && errno == EAGAIN;
}

void dispatch_put(const Dispatch &now, MsgService *service, MsgOsb *open) RELEASE(server_lock) {
    if (open->queued >= open->queue_limit || takes_no_notifications(now, *open)) {
        return now.refuse(EAGAIN);
    }
    if (now.context->header->tag == 0) {
        return now.refuse(EINVAL);
    }
    owe_answer(open);
    now.lock.release();
    now.accept();
    service->request_cb(open, now.context, service);
}

void dispatch_request(const Dispatch &now, MsgService *service) RELEASE(server_lock) {
    const TransportHeader &header = *now.context->header;
    auto *open = static_cast<MsgOsb *>(_array_get(service->opens, header.open_index));
    open->inuse++;
    const StepReference reference(open);
    switch (header.kind) {
    case MSG_KIND_CLOSE:
        return dispatch_close(now, service, open);
    case MSG_KIND_NOTIFY:
        return dispatch_notify(now, open);
    case MSG_KIND_PUTGET:
        return dispatch_putget(now, service, open);
    case MSG_KIND_PUT:
        return dispatch_put(now, service, open);
    default:
        now.lock.release();
        return fetch_answer(open, *now.context);
    }
}

} // namespace
} // namespace vantro::transport

using namespace vantro::transport;

int32_t msgserver_dispatch(MsgServer *server) {
    MsgContext *context = context_of(server);
    if (!context || context->receive_id < 0) {
        return -1;
    }
    ServerLock lock(server);
    const Dispatch now = {server, context, lock};
    if (context->receive_id == 0) {
        dispatch_pulse(now);
        return 0;
    }
    if (!is_transport(*context)) {
        dispatch_foreign(now);
        return 0;
    }
    const bool opening = context->header->kind == MSG_KIND_OPEN;
    MsgService *service = opening ? lookup(server, requested_name(*context), -1)
                                  : lookup(server, nullptr, context->info.conn_id);
    if (!service) {
        std::optional<Refusal> refusal;
        if (opening && now.logs_refusals()) {
            note_missing_capabilities(server, requested_name(*context), context->info.conn_id,
                                      refusal);
        }
        now.refuse(ENOENT, refusal);
    } else if (opening) {
        dispatch_open(now, service);
    } else {
        dispatch_request(now, service);
    }
    return 0;
}
