// Pulse connections of this process to its own channels.
//
// Pulses of this process arrive on the channel's own socket. Pulses of a server arrive on a socket
// pair that the server made for one pulse connection: a server cannot affect the pulses of another
// server.
//
// pulse_connections_lock is taken before server_lock.
#include <pthread.h>
#include <sys/random.h>
#include <sys/socket.h>

#include <cerrno>
#include <map>
#include <new>
#include <utility>

#include "platform/linux/base/never_destroyed.h"
#include "platform/linux/messages/connection.h"
#include "platform/linux/messages/server.h"
#include "platform/portable/guards.h"

using namespace vantro::platform;
using vantro::Mutex;
using vantro::MutexLock;

namespace {

struct PulseConnection {
    int channel = 0;
    std::shared_ptr<UniqueFd> send_end;
};

constinit Mutex pulse_connections_lock;

struct PulseConnections {
    std::map<int, PulseConnection> table GUARDED_BY(pulse_connections_lock);
    int newest GUARDED_BY(pulse_connections_lock) = 0;

    static PulseConnections &instance();
};

// A child must not send on the parent's.
void before_fork() ACQUIRE(pulse_connections_lock) {
    pulse_connections_lock.lock();
}
void after_fork_in_parent() RELEASE(pulse_connections_lock) {
    pulse_connections_lock.unlock();
}
void after_fork_in_child() RELEASE(pulse_connections_lock) {
    PulseConnections::instance().table.clear();
    pulse_connections_lock.unlock();
}

PulseConnections &PulseConnections::instance() {
    static auto *const connections = [] {
        Server::instance(); // a fork takes its lock after this one, since it was made earlier
        pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
        static NeverDestroyed<PulseConnections> instance;
        return instance.get();
    }();
    return *connections;
}

// The first number of this process, which differs between processes. So if a notification is for a
// client that is gone, and another client has the same id by now, the notification does not name a
// pulse connection of that other client.
int first_number() {
    uint32_t noise = 0;
    [[maybe_unused]] const ssize_t got = ::getrandom(&noise, sizeof noise, GRND_NONBLOCK);
    constexpr uint32_t half = number_mask / 2; // leaves as many numbers to count up
    return make_number(NumberKind::pulse_connection, static_cast<int>(noise % half) + 1);
}

// A pulse takes a kernel buffer far larger than itself: this is room for the guaranteed number of
// pulses.
constexpr int pulse_buffer_bytes = IPC_PULSE_CAPACITY * 1024;

// The channel's pulse socket; made with the first pulse connection. @return the send end, or null.
std::shared_ptr<UniqueFd> pulse_socket(Channel &channel) {
    const MutexLock guard(server_lock);
    if (channel.pulse_send) {
        return channel.pulse_send;
    }
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        return nullptr;
    }
    UniqueFd receive(ends[0]);
    UniqueFd send_end(ends[1]); // owned before anything can throw
    auto send = std::make_shared<UniqueFd>(std::move(send_end));
    ::setsockopt(send->get(), SOL_SOCKET, SO_SNDBUF, &pulse_buffer_bytes,
                 sizeof pulse_buffer_bytes);
    if (!channel.wait_sets.watch(receive.get(),
                                 {socket_events, Source{Source::sent_pulse}.pack()})) {
        return nullptr;
    }
    channel.pulse_receive = std::move(receive);
    channel.pulse_send = send;
    return send;
}

} // namespace

namespace vantro::platform {

void retire_pulse_end(Channel &channel, size_t index) {
    const int socket = channel.pulse_ends[index].socket->get();
    ::shutdown(socket, SHUT_RDWR); // this notifies the server
    char byte;
    if (::recv(socket, &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) <= 0) {
        close_pulse_end(channel, index);
    } // else the receiver reads the remaining pulses, and then the end
}

void close_pulse_end(Channel &channel, size_t index) {
    const auto end = channel.pulse_ends.begin() + static_cast<ptrdiff_t>(index);
    channel.wait_sets.unwatch(end->socket->get());
    channel.pulse_ends.erase(end);
}

static int add_pulse_end(Channel &channel, PulseEnd end) REQUIRES(server_lock) {
    for (size_t i = channel.pulse_ends.size(); i-- > 0;) {
        if (channel.pulse_ends[i].number == end.number &&
            channel.pulse_ends[i].server == end.server) {
            retire_pulse_end(channel, i);
        }
    }
    const WatchedSocket watched = {socket_events, Source{Source::sent_pulse, 0, 0, end.id}.pack()};
    const int socket = end.socket->get();
    channel.pulse_ends.push_back(std::move(end));
    if (!channel.wait_sets.watch(socket, watched)) {
        const int error = errno;
        channel.pulse_ends.pop_back();
        return error;
    }
    return 0;
}

int adopt_pulse_end(int number, const Connection &server_connection, ForeignFd socket) {
    if (const int error = check_packet_socket(socket.get()); error != 0) {
        return error;
    }
    refuse_descriptors(socket.get());
    PulseConnections &connections = PulseConnections::instance();
    const MutexLock guard(pulse_connections_lock);
    const auto found = connections.table.find(number);
    if (found == connections.table.end()) {
        return EBADF; // detached meanwhile
    }
    Server &server = Server::instance();
    const MutexLock server_guard(server_lock);
    const auto channel = server.channels.find(found->second.channel);
    if (channel == server.channels.end()) {
        return EBADF;
    }
    try {
        return add_pulse_end(*channel->second,
                             {number, &server_connection, ++server.last_incarnation,
                              std::make_shared<ForeignFd>(std::move(socket))});
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
}

} // namespace vantro::platform

static int attach(uint32_t node, int32_t pid, int channel_number) {
    if (node != 0 || (pid != 0 && pid != ::getpid())) {
        return fail(ENOTSUP);
    }
    const std::shared_ptr<Channel> channel = Server::instance().find_channel(channel_number);
    if (!channel) {
        return fail(EBADF);
    }
    std::shared_ptr<UniqueFd> send_end = pulse_socket(*channel);
    if (!send_end) {
        return -1;
    }
    PulseConnections &connections = PulseConnections::instance();
    const MutexLock guard(pulse_connections_lock);
    const int next = connections.newest == 0 ? first_number() : connections.newest + 1;
    connections.table.emplace(next, PulseConnection{channel_number, std::move(send_end)});
    connections.newest = next;
    return next;
}

int connect_attach(uint32_t node, int32_t pid, int channel_number, unsigned, int) {
    return or_no_memory([=] { return attach(node, pid, channel_number); });
}

int ipc_announce_pulse(int connection_number, int number) {
    {
        PulseConnections &connections = PulseConnections::instance();
        const MutexLock guard(pulse_connections_lock);
        if (connections.table.count(number) == 0) {
            return fail(EBADF);
        }
    }
    const std::shared_ptr<Connection> connection = Connections::instance().find(connection_number);
    return connection ? connection->announce_pulse(number) : fail(EBADF);
}

static int detach_pulse_connection(int number) {
    PulseConnections &connections = PulseConnections::instance();
    const MutexLock guard(pulse_connections_lock);
    const auto found = connections.table.find(number);
    if (found == connections.table.end()) {
        return fail(EBADF);
    }
    {
        Server &server = Server::instance();
        const MutexLock server_guard(server_lock);
        const auto channel = server.channels.find(found->second.channel);
        if (channel != server.channels.end()) {
            auto &ends = channel->second->pulse_ends;
            for (size_t i = ends.size(); i-- > 0;) {
                if (ends[i].number == number) {
                    retire_pulse_end(*channel->second, i);
                }
            }
        }
    }
    connections.table.erase(found);
    return 0;
}

int connect_detach(int number) {
    const CancelDisabled no_cancel;
    if (kind_of(number) == NumberKind::pulse_connection) {
        return detach_pulse_connection(number);
    }
    if (kind_of(number) != NumberKind::client_id) {
        return fail(EBADF);
    }
    Server &server = Server::instance();
    const MutexLock guard(server_lock);
    Client *client = server.find_client(static_cast<uint32_t>(value_of(number)));
    if (!client || client->state == ClientState::detached) {
        return fail(EBADF);
    }
    if (client->is_connected()) {
        server.disconnect(*client);
        return 0;
    }
    if (client->state == ClientState::pulse_received) {
        client->state = ClientState::detached;
    }
    server.erase_if_finished(*client);
    return 0;
}

int pulse_send(int number, int, int code, int32_t value) {
    if (code < 0 || code > INT8_MAX) {
        return fail(EINVAL);
    }
    const CancelDisabled no_cancel;
    std::shared_ptr<UniqueFd> send_end;
    {
        PulseConnections &connections = PulseConnections::instance();
        const MutexLock guard(pulse_connections_lock);
        const auto found = connections.table.find(number);
        if (found == connections.table.end()) {
            return fail(EBADF);
        }
        send_end = found->second.send_end;
    }
    struct ipc_pulse pulse = {};
    pulse.code = static_cast<int8_t>(code);
    pulse.value = value;
    const struct iovec part = {&pulse, sizeof pulse};
    if (send_packet(send_end->get(), &part, 1, -1, MSG_DONTWAIT) == sizeof pulse) {
        return 0;
    }
    return fail(errno == EAGAIN ? EAGAIN : EBADF);
}
