// The client half: opening and closing a connection to a service, and the exchanges on it.
//
// A client does not change after it is opened, and every exchange builds its header and vectors on
// its own stack. So threads need no lock here, and no exchange uses the heap.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>

#include <vantro/messaging.h>
#include <vantro/platform/io.h>
#include <vantro/platform/names.h>

#include "transport/client/client.h"
#include "transport/headered_parts.h"
#include "transport/wire.h"

namespace vantro::transport {

TransportHeader request_header(const MsgClient &client, int kind) {
    TransportHeader header = {};
    header.kind = static_cast<uint8_t>(kind);
    header.version = transport_version;
    header.service_index = static_cast<int16_t>(client.service_index);
    header.open_index = static_cast<int16_t>(client.open_index);
    return header;
}

int exchange(const MsgClient &client, TransportHeader *header, const iovec *send, int send_count,
             const iovec *reply, int reply_count, uint32_t *received) {
    const HeaderedParts out(header, send, send_count);
    if (!out) {
        return errno;
    }
    int status;
    size_t bytes = 0;
    if (reply_count == no_reply) {
        status = ipc_send(client.connection, out.data(), out.count(), nullptr, 0);
    } else {
        // The reply header overwrites the request header, which has been sent by then.
        const HeaderedParts in(header, reply, reply_count);
        if (!in) {
            return errno;
        }
        // Once fetched, a held answer is no longer at the server.
        const auto send_for = header->kind == MSG_KIND_GET ? ipc_fetch : ipc_send_counted;
        status =
            send_for(client.connection, out.data(), out.count(), in.data(), in.count(), &bytes);
    }
    if (received) {
        *received = static_cast<uint32_t>(bytes - std::min(bytes, sizeof *header));
    }
    return status == -1 ? errno : status;
}

namespace {

constexpr char path_format[] = "/sys/csm/%s/%s";
constexpr size_t path_prefix = sizeof "/sys/" - 1; // a global name is the path without it

void close_connection(const MsgClient &client) {
    if (client.opened_by_path) {
        platform_close(client.connection);
    } else {
        global_name_close(client.connection);
    }
}

// Whether an open failed for a reason that does not depend on the opened name.
bool is_passing(int error) {
    switch (error) {
    case EINTR:
    case EAGAIN:
    case EMFILE:
    case ENFILE:
    case ENOMEM:
        return true;
    default:
        return false;
    }
}

// Connects by path, else by global name. @return 0, or -1 with the errno of the global name; if
// that does not exist and the path may, with the errno of the path.
int connect_service(MsgClient *client, const char *path) {
    client->connection = platform_open(path, O_RDWR);
    client->opened_by_path = client->connection != -1;
    if (client->opened_by_path) {
        return 0;
    }
    const int path_error = errno;
    // The same service has the global name: the caller would wait again, or find the same other
    // release.
    if (path_error == ETIMEDOUT || path_error == EPROTONOSUPPORT) {
        return -1;
    }
    client->connection = global_name_open(path + path_prefix, 0);
    if (client->connection != -1) {
        return 0;
    }
    if (errno == ENOENT && is_passing(path_error)) {
        errno = path_error;
    }
    return -1;
}

// The open request. @return 0, or an error number.
int handshake(MsgClient *client, size_t name_length, uint16_t code) {
    TransportHeader header = request_header(*client, MSG_KIND_OPEN);
    header.code = code;
    header.send_length = static_cast<uint32_t>(name_length + 1);
    header.reply_length = header_bytes;
    const iovec name = {client->service_name, name_length + 1};
    const iovec request[] = {{&header, header_bytes}, name};
    const iovec reply = {&header, header_bytes};
    const int status = ipc_send(client->connection, request, 2, &reply, 1);
    if (status != 0) {
        // The answer to an open has status 0; a peer that sends another speaks another protocol.
        return status == -1 ? errno : EPROTO;
    }
    client->service_index = header.service_index;
    client->open_index = header.open_index;
    client->pulse_channel = -1;
    client->pulse_connection = -1;
    return 0;
}

// Sets the lengths of a request's vectors, which have 32-bit fields. @return 0, or the error with
// which the exchange fails before anything is sent.
int set_lengths(TransportHeader *header, const iovec *send, int send_count, const iovec *reply,
                int reply_count) {
    if (send_count < 0 || send_count > parts_max || reply_count < 0 || reply_count > parts_max) {
        return EINVAL;
    }
    const uint64_t send_length = sum_parts(send, send_count);
    const uint64_t reply_length = sum_parts(reply, reply_count);
    if (send_length > UINT32_MAX || reply_length > UINT32_MAX) {
        return EMSGSIZE;
    }
    header->send_length = static_cast<uint32_t>(send_length);
    header->reply_length = static_cast<uint32_t>(reply_length);
    return 0;
}

// An exchange whose answer goes to the caller: putget and get.
int answered_exchange(MsgClient *client, TransportHeader *header, const iovec *send, int send_count,
                      const iovec *reply, int reply_count, AnswerLength &length) {
    int result = set_lengths(header, send, send_count, reply, reply_count);
    if (result == 0) {
        result = exchange(*client, header, send, send_count, reply, reply_count, &length.received);
    }
    length.stated = header->reply_length;
    return result;
}

} // namespace

int putgetv(MsgClient *client, const iovec *send, int send_count, const iovec *reply,
            int reply_count, AnswerLength &length, uint16_t code) {
    TransportHeader header = request_header(*client, MSG_KIND_PUTGET);
    header.code = code;
    return answered_exchange(client, &header, send, send_count, reply, reply_count, length);
}

int getv(MsgClient *client, uint32_t tag, const iovec *reply, int reply_count, AnswerLength &length,
         uint16_t code) {
    TransportHeader header = request_header(*client, MSG_KIND_GET);
    header.code = code;
    header.tag = tag;
    return answered_exchange(client, &header, nullptr, 0, reply, reply_count, length);
}

} // namespace vantro::transport

using namespace vantro::transport;

MsgClient *msgclient_open(const char *service_name, const char *instance, uint16_t code) {
    if (!service_name) {
        errno = EINVAL;
        return nullptr;
    }
    if (!instance) {
        instance = "default";
    }
    const size_t name_length = strnlen(service_name, MSG_SERVICE_NAME_MAX + 1);
    const size_t instance_length = strnlen(instance, MSG_NAME_AND_INSTANCE_MAX + 1);
    if (name_length > MSG_SERVICE_NAME_MAX ||
        name_length + instance_length > MSG_NAME_AND_INSTANCE_MAX) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    char path[MSG_NAME_AND_INSTANCE_MAX + sizeof "/sys/csm//"];
    std::snprintf(path, sizeof path, path_format, service_name, instance);

    auto *client = static_cast<MsgClient *>(std::calloc(1, sizeof(MsgClient)));
    if (!client) {
        errno = ENOMEM;
        return nullptr;
    }
    std::memcpy(client->service_name, service_name, name_length);

    int error;
    if (connect_service(client, path) == -1) {
        error = errno;
    } else {
        error = handshake(client, name_length, code);
        if (error == 0) {
            return client;
        }
        close_connection(*client);
    }
    std::free(client);
    errno = error;
    return nullptr;
}

int msgclient_close(MsgClient *client) {
    if (!client) {
        return 0;
    }
    TransportHeader header = request_header(*client, MSG_KIND_CLOSE);
    header.send_length = header_bytes;
    ipc_send_simple(client->connection, &header, sizeof header, nullptr, 0);
    close_connection(*client);
    release_pulse_channel(client);
    std::free(client);
    return 0;
}

int msgclient_putget(MsgClient *client, const void *send, uint32_t send_length, void *reply,
                     uint32_t reply_length, uint32_t *answer_length, uint16_t code) {
    const iovec out = {const_cast<void *>(send), send_length};
    const iovec in = {reply, reply_length};
    return msgclient_putgetv(client, &out, send_length ? 1 : 0, &in, reply_length ? 1 : 0,
                             answer_length, code);
}

int msgclient_putgetv(MsgClient *client, const iovec *send, int send_count, const iovec *reply,
                      int reply_count, uint32_t *answer_length, uint16_t code) {
    if (!client) {
        return EINVAL;
    }
    AnswerLength length;
    const int result = putgetv(client, send, send_count, reply, reply_count, length, code);
    if (answer_length) {
        *answer_length = length.stated;
    }
    return result;
}

int msgclient_put(MsgClient *client, uint32_t tag, const void *data, uint32_t length,
                  uint16_t code) {
    const iovec part = {const_cast<void *>(data), length};
    return msgclient_putv(client, tag, &part, length ? 1 : 0, code);
}

int msgclient_putv(MsgClient *client, uint32_t tag, const iovec *parts, int count, uint16_t code) {
    if (!client) {
        return EINVAL;
    }
    TransportHeader header = request_header(*client, MSG_KIND_PUT);
    const int refused = set_lengths(&header, parts, count, nullptr, 0);
    if (refused) {
        return refused;
    }
    header.code = code;
    header.tag = tag;
    header.reply_length = put_reply_length;
    return exchange(*client, &header, parts, count, nullptr, no_reply);
}

int msgclient_get(MsgClient *client, uint32_t tag, void *reply, uint32_t reply_length,
                  uint32_t *answer_length, uint16_t code) {
    const iovec part = {reply, reply_length};
    return msgclient_getv(client, tag, &part, reply_length ? 1 : 0, answer_length, code);
}

int msgclient_getv(MsgClient *client, uint32_t tag, const iovec *reply, int reply_count,
                   uint32_t *answer_length, uint16_t code) {
    if (!client) {
        return EINVAL;
    }
    AnswerLength length;
    const int result = getv(client, tag, reply, reply_count, length, code);
    if (answer_length) {
        *answer_length = length.stated;
    }
    return result;
}
