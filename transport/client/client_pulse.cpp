// The client half: notifications of answers that the server holds.
#include <cerrno>

#include <vantro/messaging.h>

#include "transport/client/client.h"
#include "transport/wire.h"

namespace vantro::transport {

void release_pulse_channel(MsgClient *client) {
    const int error = errno;
    if (client->pulse_channel != -1) {
        channel_destroy(client->pulse_channel);
        client->pulse_channel = -1;
    }
    if (client->pulse_connection != -1) {
        connect_detach(client->pulse_connection);
        client->pulse_connection = -1;
    }
    errno = error;
}

} // namespace vantro::transport

using namespace vantro::transport;

namespace {

constexpr int pulse_priority = 10;
constexpr int pulse_code = 0;

} // namespace

int msgclient_notify(MsgClient *client, uint32_t queue_limit, const ipc_event *event) {
    if (!client || !event) {
        return EINVAL;
    }
    // An event that does not name a pulse connection of this process is still sent: its queue limit
    // applies, but no notification comes.
    if (event->kind == IPC_EVENT_PULSE &&
        ipc_announce_pulse(client->connection, event->connection) == -1 && errno != EBADF) {
        return errno;
    }
    TransportHeader header = request_header(*client, MSG_KIND_NOTIFY);
    header.send_length = event_bytes;
    header.reply_length = queue_limit;
    const iovec part = {const_cast<ipc_event *>(event), event_bytes};
    return exchange(*client, &header, &part, 1, nullptr, no_reply);
}

int msgclient_notify_pulse(MsgClient *client, uint32_t queue_limit) {
    if (!client) {
        return EINVAL;
    }
    release_pulse_channel(client);
    client->pulse_channel = channel_create(CHANNEL_FIXED_PRIORITY);
    if (client->pulse_channel == -1) {
        return -1;
    }
    client->pulse_connection = connect_attach(0, 0, client->pulse_channel, 0, 0);
    if (client->pulse_connection == -1) {
        // A thread would wait forever on a channel that no pulse can reach.
        release_pulse_channel(client);
        return -1;
    }
    ipc_event event = {};
    event.kind = IPC_EVENT_PULSE;
    event.connection = client->pulse_connection;
    event.code = pulse_code;
    event.priority = pulse_priority;
    return msgclient_notify(client, queue_limit, &event);
}

uint32_t msgclient_wait_pulse(MsgClient *client) {
    ipc_pulse pulse;
    if (!client || ipc_receive_pulse(client->pulse_channel, &pulse, sizeof pulse, nullptr) == -1) {
        return 0;
    }
    return static_cast<uint32_t>(pulse.value);
}
