// The path-attach framework.
#include <vantro/platform/path.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

#include "platform/linux/messages/server.h"
#include "platform/linux/paths/path_dispatch.h"
#include "platform/linux/runtime/platform_path.h"
#include "platform/portable/guards.h"

using namespace vantro::platform;
using vantro::MutexLock;

namespace {

int check_open_access(struct path_request *request) {
    uint32_t mask = 0;
    if (request->open_flags != O_WRONLY) {
        mask |= PATH_ACCESS_READ;
    }
    if (request->open_flags != O_RDONLY) {
        mask |= PATH_ACCESS_WRITE;
    }
    auto *attr = static_cast<struct path_attr *>(request->handle);
    struct ipc_credentials client;
    if (connect_client_info(request->context->info.conn_id, &client, IPC_CREDENTIAL_GROUPS) != 0) {
        return -EACCES;
    }
    path_attr_lock(attr);
    const int refused = path_check_access(request->context, attr, mask, &client);
    path_attr_unlock(attr);
    return -refused;
}

int not_supported(struct path_request *) {
    return -ENOSYS;
}

int nothing_to_close(struct path_request *) {
    return 0;
}

path_handler connect_handler(const PathAttachment &attachment, unsigned place) {
    return attachment.connect && place < attachment.connect->count &&
                   attachment.connect->handlers[place]
               ? attachment.connect->handlers[place]
               : check_open_access;
}

path_handler io_handler(const PathAttachment &attachment, unsigned place) {
    return attachment.io && place < attachment.io->count && attachment.io->handlers[place]
               ? attachment.io->handlers[place]
               : not_supported;
}

int send_result(const struct path_context *context, int result) {
    return result < 0 ? ipc_error(context->receive_id, -result)
                      : ipc_reply(context->receive_id, result, nullptr, 0);
}

// A client's open, or one without attachment if there is none.
PathOpen find_open(struct path_dispatch &dispatch, int conn_id) {
    const MutexLock guard(dispatch.lock);
    const auto found = dispatch.opens.find(conn_id);
    return found == dispatch.opens.end() ? PathOpen() : found->second;
}

int handle_open(struct path_context *context, const PathMessage &message) {
    struct path_dispatch &dispatch = *context->dispatch;
    const int conn_id = context->info.conn_id;
    const PathAttachment *attachment = nullptr;
    {
        const MutexLock guard(dispatch.lock);
        const auto found = dispatch.attachments.find(client_attachment(conn_id));
        if (found != dispatch.attachments.end()) {
            attachment = found->second.get();
        }
    }
    if (!attachment) {
        return send_result(context, -ENOSYS);
    }
    struct path_request request = {.context = context,
                                   .handle = attachment->attr,
                                   .open_flags = message.value & O_ACCMODE,
                                   .data = nullptr,
                                   .length = 0};
    const int result = connect_handler(*attachment, PATH_CONNECT_OPEN)(&request);
    if (result >= 0) {
        try {
            const MutexLock guard(dispatch.lock);
            dispatch.opens.insert_or_assign(conn_id, PathOpen{attachment, request.open_flags});
        } catch (const std::bad_alloc &) {
            return send_result(context, -ENOMEM);
        }
    }
    return send_result(context, std::min(result, 0));
}

int handle_read(struct path_context *context, const PathMessage &message, const PathOpen &open) {
    if (open.flags == O_WRONLY) {
        return send_result(context, -EBADF);
    }
    // The request has been read, so its buffer is free for the answer.
    struct path_request request = {.context = context,
                                   .handle = open.attachment->attr,
                                   .open_flags = open.flags,
                                   .data = context->message,
                                   .length = std::min<size_t>(message.value, context->message_max)};
    const int result = io_handler(*open.attachment, PATH_IO_READ)(&request);
    if (result < 0) {
        return send_result(context, result);
    }
    const size_t count = std::min(static_cast<size_t>(result), request.length);
    return ipc_reply(context->receive_id, static_cast<int>(count), context->message, count);
}

int handle_write(struct path_context *context, const PathMessage &message, const PathOpen &open) {
    if (open.flags == O_RDONLY) {
        return send_result(context, -EBADF);
    }
    if (message.value != context->message_length - sizeof message) {
        return send_result(context, -EIO);
    }
    struct path_request request = {.context = context,
                                   .handle = open.attachment->attr,
                                   .open_flags = open.flags,
                                   .data = context->message + sizeof message,
                                   .length = message.value};
    return send_result(context, io_handler(*open.attachment, PATH_IO_WRITE)(&request));
}

int handle_pulse(struct path_context *context) {
    struct ipc_pulse pulse;
    if (context->message_length < sizeof pulse) {
        return 0;
    }
    std::memcpy(&pulse, context->message, sizeof pulse);
    if (pulse.code != PULSE_CODE_DISCONNECT) {
        return 0;
    }
    PathOpen open;
    {
        const MutexLock guard(context->dispatch->lock);
        if (auto node = context->dispatch->opens.extract(pulse.conn_id)) {
            open = node.mapped();
        }
    }
    if (open.attachment) {
        struct path_request request = {.context = context,
                                       .handle = open.attachment->attr,
                                       .open_flags = open.flags,
                                       .data = nullptr,
                                       .length = 0};
        io_handler(*open.attachment, PATH_IO_CLOSE)(&request);
    }
    connect_detach(pulse.conn_id);
    return 0;
}

} // namespace

struct path_dispatch *path_dispatch_create(int channel, unsigned) {
    if (!Server::instance().find_channel(channel)) {
        errno = EBADF;
        return nullptr;
    }
    auto *dispatch = new (std::nothrow) path_dispatch;
    if (!dispatch) {
        errno = ENOMEM;
        return nullptr;
    }
    dispatch->channel = channel;
    return dispatch;
}

void path_dispatch_destroy(struct path_dispatch *dispatch) {
    delete dispatch;
}

struct path_context *path_context_alloc(struct path_dispatch *dispatch) {
    auto *context = new (std::nothrow) path_context{};
    if (context) {
        context->message = new (std::nothrow) uint8_t[PATH_MESSAGE_MAX];
    }
    if (!context || !context->message) {
        delete context;
        errno = ENOMEM;
        return nullptr;
    }
    context->message_max = PATH_MESSAGE_MAX;
    context->dispatch = dispatch;
    return context;
}

void path_context_free(struct path_context *context) {
    if (context) {
        delete[] context->message;
        delete context;
    }
}

int path_receive(struct path_context *context) {
    const struct iovec part = {context->message, context->message_max};
    context->receive_id = ipc_receive(context->dispatch->channel, &part, 1, &context->info);
    context->message_length = 0;
    if (context->receive_id == 0) {
        context->message_length = sizeof(struct ipc_pulse);
    } else if (context->receive_id > 0) {
        context->message_length = static_cast<size_t>(context->info.msg_length);
    }
    return context->receive_id;
}

int path_dispatch_handle(struct path_context *context) {
    if (context->receive_id == 0) {
        return handle_pulse(context);
    }
    PathMessage message;
    if (context->receive_id < 0 || context->message_length < sizeof message) {
        return context->receive_id < 0 ? 0 : send_result(context, -ENOSYS);
    }
    std::memcpy(&message, context->message, sizeof message);
    if (message.type == path_open) {
        return handle_open(context, message);
    }
    if (message.type != path_read && message.type != path_write) {
        return send_result(context, -ENOSYS);
    }
    const PathOpen open = find_open(*context->dispatch, context->info.conn_id);
    if (!open.attachment) {
        return send_result(context, -EBADF);
    }
    return message.type == path_read ? handle_read(context, message, open)
                                     : handle_write(context, message, open);
}

void path_funcs_init(unsigned connect_count, struct path_connect_funcs *connect, unsigned io_count,
                     struct path_io_funcs *io) {
    if (connect) {
        *connect = {};
        connect->count = std::min<unsigned>(connect_count, PATH_CONNECT_HANDLER_COUNT);
        std::fill_n(connect->handlers, connect->count, not_supported);
        if (connect->count > PATH_CONNECT_OPEN) {
            connect->handlers[PATH_CONNECT_OPEN] = check_open_access;
        }
    }
    if (io) {
        *io = {};
        io->count = std::min<unsigned>(io_count, PATH_IO_HANDLER_COUNT);
        std::fill_n(io->handlers, io->count, not_supported);
        if (io->count > PATH_IO_CLOSE) {
            io->handlers[PATH_IO_CLOSE] = nothing_to_close;
        }
    }
}

void path_attr_init(struct path_attr *attr, uint32_t mode, const struct path_attr *parent,
                    const struct ipc_credentials *client) {
    *attr = {};
    attr->mode = mode;
    attr->uid = client ? client->uid : ::geteuid();
    attr->gid = client ? client->gid : ::getegid();
    attr->mount = parent ? parent->mount : nullptr;
    pthread_mutex_init(&attr->lock, nullptr);
}

int path_attr_lock(struct path_attr *attr) {
    return pthread_mutex_lock(&attr->lock);
}

int path_attr_unlock(struct path_attr *attr) {
    return pthread_mutex_unlock(&attr->lock);
}

int path_check_access(struct path_context *context, const struct path_attr *attr, uint32_t mask,
                      const struct ipc_credentials *client) {
    if (!client) {
        return EACCES;
    }
    if (client->uid == 0) {
        return 0;
    }
    uint32_t granted = attr->mode << 6; // the others' bits
    if (client->uid == attr->uid) {
        granted = attr->mode;
    } else {
        bool is_member = false;
        if (!context || !client_in_group(context->info.conn_id, attr->gid, is_member)) {
            const uint32_t *end = client->groups + client->group_count;
            is_member = std::find(client->groups, end, attr->gid) != end;
        }
        if (client->gid == attr->gid || is_member) {
            granted = attr->mode << 3;
        }
    }
    return (granted & mask) == mask ? 0 : EACCES;
}

int path_attach(struct path_dispatch *dispatch, const struct path_attach_options *,
                const char *path, int, unsigned, const struct path_connect_funcs *connect,
                const struct path_io_funcs *io, struct path_attr *handle) {
    std::string_view relative;
    if (!dispatch || !path || !handle) {
        return fail(EINVAL);
    }
    if (!is_platform_path(path, relative)) {
        return fail(ENOENT);
    }
    static std::atomic<int> last_id;
    try {
        auto attachment = std::make_unique<PathAttachment>();
        const int id = ++last_id;
        attachment->id = id;
        attachment->connect = connect;
        attachment->io = io;
        attachment->attr = handle;
        // Done before the path is published: its first client may come at once.
        {
            const MutexLock guard(dispatch->lock);
            dispatch->attachments.emplace(id, std::move(attachment));
        }
        if (or_no_memory([&] { return listen_on(dispatch->channel, std::string(relative), id); }) !=
            0) {
            const KeepErrno keep;
            const MutexLock guard(dispatch->lock);
            dispatch->attachments.erase(id);
            return -1;
        }
        return id;
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}
