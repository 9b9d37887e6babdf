// Listening and control sockets: clients that connect, request lanes and pulses, and disconnect.
#include <fcntl.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "platform/linux/messages/server.h"

namespace vantro::platform {

namespace {

// A reserved descriptor. If a process has no free descriptor, a pending connection would keep the
// listening socket readable forever: when this descriptor is released, the connection can be
// accepted and refused.
class Reserve {
  public:
    Reserve() { take(); }
    // Accepts one connection instead of the reserve, and answers EAGAIN.
    void turn_away(int listening) EXCLUDES(lock_) {
        const MutexLock guard(lock_);
        if (!spare_) {
            take();
        }
        if (!spare_) {
            // Another thread took the last descriptor: wait a moment rather than spin.
            const struct timespec moment = {0, 10'000'000};
            nanosleep(&moment, nullptr);
            return;
        }
        spare_.reset();
        const ClientSocket client(::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC));
        if (client) {
            send_control(client.get(), control_refused, EAGAIN, -1);
        }
        take();
    }

  private:
    void take() REQUIRES(lock_) { spare_.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }

    Mutex lock_;
    UniqueFd spare_ GUARDED_BY(lock_);
};

Reserve &reserve() {
    static Reserve *const kept = new Reserve;
    return *kept;
}

void read_credentials(int socket, Client &client) {
    struct ucred peer;
    socklen_t length = sizeof peer;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 || peer.pid < 0 ||
        peer.uid == static_cast<uid_t>(-1)) {
        return;
    }
    client.credentials_known = true;
    client.pid = peer.pid;
    client.uid = peer.uid;
    client.gid = peer.gid;
    gid_t few[IPC_CREDENTIAL_GROUPS];
    length = sizeof few;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, few, &length) == 0) {
        client.groups.assign(few, few + length / sizeof(gid_t));
    } else if (errno == ERANGE) {
        client.groups.resize(length / sizeof(gid_t));
        if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, client.groups.data(), &length) != 0) {
            client.groups.clear();
        }
    }
}

// A lane's index: the lowest that no socket and no dispatch uses. If there is none, an index with
// an owed answer is used: a program that never answers must not use up a client's lanes.
int free_lane_index(Client &client) REQUIRES(server_lock) {
    int last_resort = -1;
    for (size_t i = 0; i < client.lanes.size(); ++i) {
        const Lane &lane = client.lanes[i];
        if (lane.socket.fd < 0 && !lane.holds_pulse) {
            last_resort = static_cast<int>(i);
            if (lane.state != LaneState::closed_owing) {
                return last_resort;
            }
        }
    }
    if (client.lanes.size() >= IPC_LANES_MAX) {
        return last_resort;
    }
    client.lanes.emplace_back();
    return static_cast<int>(client.lanes.size()) - 1;
}

// Takes the near end of a new lane. @return 0 or an error number.
// @param index receives the lane's index.
int add_lane(Client &client, ClientSocket near_end, int &index, ClientRefusal &refusal)
    REQUIRES(server_lock) {
    Server &server = Server::instance();
    if (!client.is_connected()) {
        return ECONNRESET;
    }
    try {
        index = free_lane_index(client);
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
    if (index < 0 || !server.descriptors.take(client.pid, client.uid, ClientDescriptors::of_lane,
                                              near_end.get(), refusal)) {
        return EAGAIN;
    }
    Lane &lane = client.lanes[static_cast<size_t>(index)];
    const uint32_t incarnation = ++server.last_incarnation;
    const Source source = {Source::client_lane, static_cast<uint16_t>(client.serial),
                           static_cast<uint8_t>(index), incarnation};
    if (!client.channel->wait_sets.watch(near_end.get(), {lane_events, source.pack()})) {
        server.descriptors.give(client.uid, ClientDescriptors::of_lane);
        return errno;
    }
    lane.socket = PinnedFd();
    lane.socket.fd = near_end.release();
    lane.incarnation = incarnation;
    lane.state = LaneState::idle;
    lane.home = -1;
    lane.quick = 0;
    lane.is_unwatched = false;
    return 0;
}

// Makes a lane for a client whose control socket is pinned, and passes it, or refuses.
bool grant_lane(uint32_t serial, int control) EXCLUDES(server_lock) {
    Server &server = Server::instance();
    int ends[2];
    int error = 0;
    int index = -1;
    int grant = 0;
    ClientRefusal refusal;
    UniqueFd far_end;
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        error = descriptor_error(errno);
    } else {
        ClientSocket near_end(ends[0]);
        far_end.reset(ends[1]);
        const MutexLock guard(server_lock);
        Client &client = *server.find_client(serial);
        error = add_lane(client, std::move(near_end), index, refusal);
        grant = wire_version << wire_version_shift | index << lane_index_shift |
                (client.channel->wait_sets.hands_over() ? lane_hands_over : 0);
    }
    refusal.tell();
    return error == 0 ? send_control(control, control_lane_granted, grant, far_end.get())
                      : send_control(control, control_refused, error, -1);
}

// Makes the words of a client whose control socket is pinned, once, and passes them, or refuses.
bool grant_words(uint32_t serial, int control) EXCLUDES(server_lock) {
    UniqueFd file;
    std::shared_ptr<ConnectionWords> words = ConnectionWords::make(file);
    {
        const MutexLock guard(server_lock);
        Client &client = *Server::instance().find_client(serial);
        if (client.words || !client.is_connected()) {
            return false; // the client had them already, or is gone
        }
        client.words = words;
    }
    return words ? send_control(control, control_words_granted, 0, file.get())
                 : send_control(control, control_refused, ENOMEM, -1);
}

// A client is about to sleep until an answer comes. @return false if it has no such lane.
bool watch_lane(const Source &control, int index) EXCLUDES(server_lock) {
    const MutexLock guard(server_lock);
    Client &client = *Server::instance().find_client(control.serial); // pinned
    if (index < 0 || static_cast<size_t>(index) >= client.lanes.size()) {
        return false;
    }
    Server::instance().watch_lane_again({Source::client_lane, control.serial,
                                         static_cast<uint8_t>(index),
                                         client.lanes[static_cast<size_t>(index)].incarnation});
    return true;
}

bool take_socket(const Client &client, int socket, ClientRefusal &refusal) EXCLUDES(server_lock) {
    const MutexLock guard(server_lock);
    return Server::instance().descriptors.take(client.pid, client.uid, ClientDescriptors::of_socket,
                                               socket, refusal);
}

// The next unused serial, or 0. Round robin: see ReceiveId.
uint32_t next_serial(Server &server) REQUIRES(server_lock) {
    uint32_t last_resort = 0;
    for (uint32_t tried = 0; tried < IPC_CONNECTIONS_MAX; ++tried) {
        server.last_serial = server.last_serial % IPC_CONNECTIONS_MAX + 1;
        if (!server.clients[server.last_serial]) {
            if (server.owed[server.last_serial] == 0) {
                return server.last_serial;
            }
            last_resort = server.last_serial;
        }
    }
    return last_resort;
}

} // namespace

bool send_control(int socket, ControlKind kind, int value, int descriptor) {
    ControlRecord record{kind, value};
    const struct iovec part = {&record, sizeof record};
    return send_packet(socket, &part, 1, descriptor, MSG_DONTWAIT) == sizeof record;
}

void accept_client(Channel &channel, uint16_t listener) {
    Server &server = Server::instance();
    int listening;
    int attachment;
    {
        const MutexLock guard(server_lock);
        listening = channel.listeners[listener]->socket.get();
        attachment = channel.listeners[listener]->attachment;
    }
    int control;
    uint32_t serial;
    try {
        Reserve &spare = reserve();
        ClientSocket socket(::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!socket) {
            if (errno == EMFILE || errno == ENFILE) {
                spare.turn_away(listening);
            }
            return;
        }
        control = socket.get();
        auto client = std::make_unique<Client>();
        client->channel = &channel;
        client->attachment = attachment;
        read_credentials(control, *client);
        if (ClientRefusal refusal; !take_socket(*client, control, refusal)) {
            refusal.tell();
            send_control(control, control_refused, EAGAIN, -1);
            return;
        }
        const MutexLock guard(server_lock);
        serial = next_serial(server);
        if (serial == 0 || channel.destroyed) {
            server.descriptors.give(client->uid, ClientDescriptors::of_socket);
            return;
        }
        client->serial = serial;
        client->incarnation = ++server.last_incarnation;
        const Source source = {Source::client_control, static_cast<uint16_t>(serial), 0,
                               client->incarnation};
        if (!channel.wait_sets.watch(control, {socket_events, source.pack()})) {
            server.descriptors.give(client->uid, ClientDescriptors::of_socket);
            return;
        }
        client->control.fd = socket.release();
        server.pin(*client, client->control);
        ++channel.client_count;
        server.clients[serial] = std::move(client);
    } catch (const std::bad_alloc &) {
        return;
    }
    const bool granted = grant_lane(serial, control);
    const MutexLock guard(server_lock);
    if (!granted) {
        server.disconnect(*server.find_client(serial));
    }
    server.unpin(serial, -1);
}

void serve_control(const Source &source) {
    Server &server = Server::instance();
    int control;
    {
        const MutexLock guard(server_lock);
        Client *client = server.find_client(source.serial);
        if (!client || client->incarnation != source.incarnation || !client->is_connected()) {
            return;
        }
        server.pin(*client, client->control);
        control = client->control.fd;
    }
    ControlRecord record;
    struct iovec part = {&record, sizeof record};
    Arrival arrival;
    const ssize_t received =
        receive_packet(control, &part, 1, MSG_DONTWAIT, arrival, takes_descriptors());
    const bool nothing = received < 0 && (errno == EAGAIN || errno == EINTR);
    bool keep = nothing;
    if (received == sizeof record && record.kind == control_lane_request) {
        keep = grant_lane(source.serial, control);
    } else if (received == sizeof record && record.kind == control_pulse_request) {
        keep = grant_pulses(source.serial, control, record.value);
    } else if (received == sizeof record && record.kind == control_words_request) {
        keep = grant_words(source.serial, control);
    } else if (received == sizeof record && record.kind == control_watch_lane) {
        keep = watch_lane(source, record.value);
    }
    const MutexLock guard(server_lock);
    if (!keep) {
        server.disconnect(*server.find_client(source.serial));
    }
    server.unpin(source.serial, -1);
}

} // namespace vantro::platform
