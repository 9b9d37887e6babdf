// Notifications: pulses to clients, for the pulse connections that they named.
//
// A pulse for which a client's socket has no room waits at its outlet, in order, until the client
// has received some. Each outlet is a separate socket pair, made here: its client can close it, but
// can neither send on it nor reach another client's outlet.
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <new>
#include <utility>

#include "platform/linux/messages/server.h"
#include "platform/portable/guards.h"

using namespace vantro::platform;
using vantro::MutexLock;

namespace vantro::platform {

namespace {

// Requests an event for when an outlet has room, or cancels that.
bool watch_outlet(const Client &client, const PulseOutlet &outlet, bool is_new, bool for_room)
    REQUIRES(server_lock) {
    const Source source = {Source::client_outlet, static_cast<uint16_t>(client.serial),
                           static_cast<uint8_t>(&outlet - client.outlets.data()),
                           outlet.incarnation};
    const WatchedSocket watched = {for_room ? outlet_events | EPOLLOUT : outlet_events,
                                   source.pack()};
    WaitSets &wait_sets = client.channel->wait_sets;
    return is_new ? wait_sets.watch(outlet.socket.get(), watched)
                  : wait_sets.watch_again(outlet.socket.get(), watched);
}

bool client_closed(const PulseOutlet &outlet) REQUIRES(server_lock) {
    struct pollfd state = {outlet.socket.get(), 0, 0};
    return ::poll(&state, 1, 0) > 0;
}

// The outlet for a pulse connection: its present one, or one that is free or closed by its client.
// Null if there is none.
PulseOutlet *outlet_for(Client &client, int number) REQUIRES(server_lock) {
    PulseOutlet *free = nullptr;
    for (PulseOutlet &outlet : client.outlets) {
        if (outlet.socket && outlet.number == number) {
            return &outlet;
        }
        if (outlet.socket && client_closed(outlet)) {
            Server::instance().close_outlet(client, outlet);
        }
        free = outlet.socket ? free : &outlet;
    }
    if (!free && client.outlets.size() < IPC_PULSE_CONNECTIONS_MAX) {
        free = &client.outlets.emplace_back();
    }
    return free;
}

// Takes the near end of a client's outlet. @return 0 or an error number.
int add_outlet(Client &client, int number, UniqueFd near_end, ClientRefusal &refusal)
    REQUIRES(server_lock) {
    Server &server = Server::instance();
    if (!client.is_connected()) {
        return ECONNRESET;
    }
    PulseOutlet *outlet;
    try {
        outlet = outlet_for(client, number);
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
    if (!outlet) {
        return EAGAIN;
    }
    if (!server.descriptors.take(client.pid, client.uid, ClientDescriptors::of_socket,
                                 near_end.get(), refusal)) {
        return EAGAIN;
    }
    std::vector<struct ipc_pulse> waiting = std::move(outlet->waiting);
    server.close_outlet(client, *outlet);
    outlet->number = number;
    outlet->incarnation = ++server.last_incarnation;
    outlet->socket = std::move(near_end);
    outlet->waiting = std::move(waiting);
    if (!watch_outlet(client, *outlet, true, !outlet->waiting.empty())) {
        const int error = errno;
        server.close_outlet(client, *outlet);
        return error;
    }
    return 0;
}

// @return 0, or the error number: EAGAIN if there is no room.
int send_pulse(const PulseOutlet &outlet, const struct ipc_pulse &pulse) REQUIRES(server_lock) {
    const struct iovec part = {const_cast<struct ipc_pulse *>(&pulse), sizeof pulse};
    return send_packet(outlet.socket.get(), &part, 1, -1, MSG_DONTWAIT) == sizeof pulse ? 0 : errno;
}

// The outlet of an event, or null.
PulseOutlet *find_outlet(Server &server, int receive_id, const struct ipc_event &event,
                         Client **client) REQUIRES(server_lock) {
    *client = receive_id > 0 ? server.find_client(ReceiveId::unpack(receive_id).serial) : nullptr;
    if (*client && (*client)->is_connected()) {
        for (PulseOutlet &outlet : (*client)->outlets) {
            if (outlet.socket && outlet.number == event.connection) {
                return &outlet;
            }
        }
    }
    return nullptr;
}

bool is_pulse_event(const struct ipc_event *event) {
    return event && event->kind == IPC_EVENT_PULSE && event->code >= 0 && event->code <= INT8_MAX;
}

// Delivers the pulse or queues it, with the lock held, so that pulses keep their order.
int deliver(Client &client, PulseOutlet &outlet, const struct ipc_pulse &pulse)
    REQUIRES(server_lock) {
    if (outlet.waiting.empty()) {
        const int error = send_pulse(outlet, pulse);
        if (error == 0) {
            return 0;
        }
        if (error != EAGAIN) {
            Server::instance().close_outlet(client, outlet);
            return fail(ESRCH);
        }
    }
    try {
        outlet.waiting.push_back(pulse);
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
    if (outlet.waiting.size() == 1 && !watch_outlet(client, outlet, false, true)) {
        const KeepErrno keep;
        outlet.waiting.pop_back();
        return -1;
    }
    return 0;
}

} // namespace

bool grant_pulses(uint32_t serial, int control, int number) {
    // A pulse takes a kernel buffer far larger than itself: this is room for the guaranteed number
    // of pulses.
    constexpr int buffer_bytes = IPC_PULSE_CAPACITY * 1024;
    Server &server = Server::instance();
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        return send_control(control, control_refused, descriptor_error(errno), -1);
    }
    UniqueFd near_end(ends[0]);
    const UniqueFd far_end(ends[1]);
    ::setsockopt(near_end.get(), SOL_SOCKET, SO_SNDBUF, &buffer_bytes, sizeof buffer_bytes);
    ::shutdown(near_end.get(), SHUT_RD); // so that the client cannot send on it
    int error;
    ClientRefusal refusal;
    {
        const MutexLock guard(server_lock);
        error = add_outlet(*server.find_client(serial), number, std::move(near_end), refusal);
    }
    refusal.tell();
    return error == 0 ? send_control(control, control_pulse_granted, number, far_end.get())
                      : send_control(control, control_refused, error, -1);
}

void serve_outlet(const Source &source, bool hung_up) {
    Server &server = Server::instance();
    const MutexLock guard(server_lock);
    Client *client = server.find_client(source.serial);
    if (!client || source.lane >= client->outlets.size()) {
        return;
    }
    PulseOutlet &outlet = client->outlets[source.lane];
    if (!outlet.socket || outlet.incarnation != source.incarnation) {
        return;
    }
    if (hung_up) {
        server.close_outlet(*client, outlet);
        return;
    }
    size_t sent = 0;
    while (sent < outlet.waiting.size() && send_pulse(outlet, outlet.waiting[sent]) == 0) {
        ++sent;
    }
    outlet.waiting.erase(outlet.waiting.begin(),
                         outlet.waiting.begin() + static_cast<ptrdiff_t>(sent));
    if (outlet.waiting.empty()) {
        watch_outlet(*client, outlet, false, false);
    }
}

} // namespace vantro::platform

int ipc_deliver_event(int receive_id, const struct ipc_event *event) {
    if (!is_pulse_event(event)) {
        return fail(EINVAL);
    }
    const CancelDisabled no_cancel;
    struct ipc_pulse pulse = {};
    pulse.code = static_cast<int8_t>(event->code);
    pulse.value = event->value;
    Server &server = Server::instance();
    const MutexLock guard(server_lock);
    Client *client = nullptr;
    PulseOutlet *const outlet = find_outlet(server, receive_id, *event, &client);
    if (!outlet) {
        return fail(ESRCH);
    }
    return deliver(*client, *outlet, pulse);
}

int ipc_check_event(int receive_id, const struct ipc_event *event) {
    if (!is_pulse_event(event)) {
        return fail(EINVAL);
    }
    Server &server = Server::instance();
    const MutexLock guard(server_lock);
    Client *client = nullptr;
    const PulseOutlet *const outlet = find_outlet(server, receive_id, *event, &client);
    if (!outlet) {
        return fail(ESRCH);
    }
    return outlet->waiting.size() < IPC_PULSE_BACKLOG ? 0 : fail(EAGAIN);
}
