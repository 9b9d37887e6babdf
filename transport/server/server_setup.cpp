// Making a server, and attaching services to it under a path or a global name.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include <fcntl.h>

#include <vantro/messaging.h>
#include <vantro/platform/io.h>
#include <vantro/platform/names.h>

#include "transport/server/access.h"
#include "transport/server/server.h"

namespace vantro::transport {
namespace {

struct Free {
    void operator()(void *memory) const { std::free(memory); }
};
using Text = std::unique_ptr<char, Free>;

// Values that the path framework stores but does not use.
constexpr uint32_t mount_configuration = 0x10;
constexpr unsigned attach_flags = 0x200;
constexpr int file_type_any = 0;

constexpr uint32_t named_special_file = 0x5000;
constexpr uint32_t permission_bits = 0666;

// The default open handler of path_funcs_init(), with a line in the log if it refuses.
int open_path(path_request *request) {
    const uint32_t mask = (request->open_flags == O_WRONLY ? 0 : uint32_t{PATH_ACCESS_READ}) |
                          (request->open_flags == O_RDONLY ? 0 : uint32_t{PATH_ACCESS_WRITE});
    auto *const attributes = static_cast<ServiceAttributes *>(request->handle);
    ipc_credentials client = {};
    if (connect_client_info(request->context->info.conn_id, &client, IPC_CREDENTIAL_GROUPS) != 0) {
        return -EACCES;
    }
    std::optional<Refusal> refusal;
    const int refused = check_path_access(request->context, &attributes->attr, mask, client,
                                          attributes->service_name, refusal);
    if (refusal) {
        refusal->log();
    }
    return -refused;
}

// Shared by all path-mode services of the process.
struct SharedPathTables {
    path_connect_funcs connect = {};
    path_io_funcs io = {};
    path_mount mount = {};

    SharedPathTables() {
        path_funcs_init(PATH_CONNECT_HANDLER_COUNT, &connect, PATH_IO_HANDLER_COUNT, &io);
        connect.handlers[PATH_CONNECT_OPEN] = open_path;
        mount.configuration = mount_configuration;
    }
};

SharedPathTables &shared_path_tables() {
    static SharedPathTables tables; // services of several servers may attach at once
    return tables;
}

Text format_name(const char *prefix, const char *name, const char *instance) {
    char *text = nullptr;
    if (asprintf(&text, "%s%s/%s", prefix, name, instance) < 0) {
        errno = ENOMEM;
        text = nullptr;
    }
    return Text(text);
}

// The number after the first `key`, read like strtoll, or `otherwise`.
uint32_t option_number(const char *options, const char *key, int base, uint32_t otherwise) {
    const char *found = std::strstr(options, key);
    if (!found) {
        return otherwise;
    }
    return static_cast<uint32_t>(std::strtoll(found + std::strlen(key), nullptr, base));
}

bool attach_path(MsgServer *server, MsgService *service, int32_t index, const char *instance)
    REQUIRES(server_lock) {
    SharedPathTables &shared = shared_path_tables();
    const Text path = format_name("/sys/csm/", service->name, instance);
    auto *attributes = static_cast<ServiceAttributes *>(std::calloc(1, sizeof(ServiceAttributes)));
    if (!path || !attributes) {
        std::free(attributes);
        errno = ENOMEM;
        return false;
    }
    attributes->service_name =
        server->flags & MSGSERVER_FLAG_LOG_REFUSALS ? service->name : nullptr;
    path_attr *const attr = &attributes->attr;
    const char *options = service->options;
    const uint32_t perms = option_number(options, "perms=", 8, permission_bits) & permission_bits;
    path_attr_init(attr, named_special_file | perms, nullptr, nullptr);
    attr->uid = option_number(options, "uid=", 10, attr->uid);
    attr->gid = option_number(options, "gid=", 10, attr->gid);
    attr->size = static_cast<uint64_t>(server->recv_size);
    attr->serial = static_cast<uint64_t>(index) + 1;
    attr->mount = &shared.mount;

    const path_attach_options defaults = {};
    if (path_attach(server->dispatch, &defaults, path.get(), file_type_any, attach_flags,
                    &shared.connect, &shared.io, attr) < 0) {
        const int error = errno;
        pthread_mutex_destroy(&attr->lock);
        std::free(attributes);
        errno = error;
        return false;
    }
    service->attr = attr;
    return true;
}

bool attach_name(MsgServer *server, const MsgService *service, const char *instance)
    REQUIRES(server_lock) {
    const Text name = format_name("csm/", service->name, instance);
    if (!name) {
        return false;
    }
    const global_name_attachment *attachment = global_name_attach(server->dispatch, name.get(), 0);
    if (!attachment) {
        return false;
    }
    // Threads that already receive read the channel without the lock.
    __atomic_store_n(&server->channel, attachment->channel, __ATOMIC_RELAXED);
    return true;
}

// @return false with errno if there is no memory for the copies.
bool fill_service(MsgService *service, const char *name, const char *options, MsgHandler request_cb,
                  MsgHandler open_cb, MsgHandler close_cb) REQUIRES(server_lock) {
    service->request_cb = request_cb;
    service->open_cb = open_cb;
    service->close_cb = close_cb;
    service->opens = &service->open_table;
    pthread_mutex_init(&service->lock, nullptr);
    service->name = strdup(name);
    service->options = strdup(options ? options : "");
    return service->name && service->options;
}

void discard_service(MsgServer *server, MsgService *service, int32_t index) REQUIRES(server_lock) {
    const int error = errno;
    std::free(service->name);
    std::free(service->options);
    pthread_mutex_destroy(&service->lock);
    _array_del(server->services, index);
    errno = error;
}

// Releases the parts of a server that is not complete. Keeps errno.
void discard_server(MsgServer *server) {
    const int error = errno;
    path_dispatch_destroy(server->dispatch);
    if (server->channel != -1) {
        channel_destroy(server->channel);
    }
    if (server->grantor_fd != -1) {
        platform_close(server->grantor_fd);
    }
    pthread_mutex_destroy(&server->lock);
    std::free(server);
    errno = error;
}

bool make_channel(MsgServer *server) {
    server->channel = channel_create(CHANNEL_UNBLOCK | CHANNEL_DISCONNECT);
    if (server->channel == -1) {
        return false;
    }
    server->dispatch = path_dispatch_create(server->channel, 0);
    if (!server->dispatch) {
        return false;
    }
    const int error = pthread_key_create(&server->key, destructer);
    errno = error ? error : errno;
    return error == 0;
}

} // namespace
} // namespace vantro::transport

using namespace vantro::transport;

MsgServer *msgserver_create(int32_t max_msg_size, int32_t queue_max, int32_t flags) {
    auto *server = static_cast<MsgServer *>(std::calloc(1, sizeof(MsgServer)));
    if (!server) {
        return nullptr;
    }
    pthread_mutex_init(&server->lock, nullptr);
    server->services = &server->service_table;
    server->channel = -1;
    server->grantor_fd = -1;
    server->flags = static_cast<uint32_t>(flags);
    if (server->flags & MSGSERVER_FLAG_PATH) {
        server->flags |= MSGSERVER_FLAG_NOCHECK;
    }
    if (!(server->flags & MSGSERVER_FLAG_NOCHECK)) {
        server->grantor_fd = platform_open(grantor_path, O_RDWR);
        if (server->grantor_fd == -1) {
            errno = EPERM;
            discard_server(server);
            return nullptr;
        }
    }
    server->recv_size = capacity_step;
    server->max_msg_size = std::max(max_msg_size, capacity_step);
    server->queue_max = queue_max;
    server->reply = callout_reply;
    server->replyv = callout_replyv;
    server->reply2 = callout_reply2;
    if (!make_channel(server)) {
        discard_server(server);
        return nullptr;
    }
    return server;
}

int32_t msgserver_add(MsgServer *server, const char *name, const char *instance,
                      const char *options, int32_t recv_size, MsgHandler request_cb,
                      MsgHandler open_cb, MsgHandler close_cb) {
    if (!server || !name || !request_cb) {
        errno = EINVAL;
        return -1;
    }
    if (!instance) {
        instance = "default";
    }
    if (std::strlen(name) > MSG_SERVICE_NAME_MAX ||
        std::strlen(name) + std::strlen(instance) > MSG_NAME_AND_INSTANCE_MAX) {
        errno = ENAMETOOLONG;
        return -1;
    }
    const ServerLock lock(server);
    const int32_t index = _array_add(server->services, sizeof(MsgService));
    if (index < 0) {
        return -1;
    }
    if (recv_size > server->recv_size) {
        // A thread that makes its context reads this without the lock.
        __atomic_store_n(&server->recv_size, recv_size, __ATOMIC_RELAXED);
    }

    auto *service = static_cast<MsgService *>(_array_get(server->services, index));
    bool attached = fill_service(service, name, options, request_cb, open_cb, close_cb);
    if (attached && index > INT16_MAX) { // clients name a service with 16 bits
        errno = ENOMEM;
        attached = false;
    }
    if (attached) {
        attached = server->flags & MSGSERVER_FLAG_PATH
                       ? attach_path(server, service, index, instance)
                       : attach_name(server, service, instance);
    }
    if (!attached) {
        discard_service(server, service, index);
        return -1;
    }
    return index;
}
