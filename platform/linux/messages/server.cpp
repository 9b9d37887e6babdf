#include "platform/linux/messages/server.h"

#include <pthread.h>

#include <algorithm>
#include <new>

namespace vantro::platform {

constinit Mutex server_lock;

namespace {

// A child of fork has copies of every socket; while they are open, the other side never sees the
// end of a connection, and a name's lock outlives its owner. So the child closes them all. The lock
// is held across the fork, so that the tables are consistent in the child.
void before_fork() ACQUIRE(server_lock) {
    server_lock.lock();
}
void after_fork_in_parent() RELEASE(server_lock) {
    server_lock.unlock();
}
void after_fork_in_child() RELEASE(server_lock) {
    Server &server = Server::instance();
    for (auto &client : server.clients) {
        if (!client) {
            continue;
        }
        close_descriptor(client->control.fd);
        for (Lane &lane : client->lanes) {
            close_descriptor(lane.socket.fd);
        }
        for (PulseOutlet &outlet : client->outlets) {
            outlet.socket.reset();
        }
        if (client->words) {
            client->words->forget_in_child();
        }
        // Not destroyed: other threads of the parent may have been using it.
        static_cast<void>(client.release());
    }
    for (auto &[number, channel] : server.channels) {
        for (auto &listener : channel->listeners) {
            listener->socket.reset();
            listener->name.forget();
        }
        channel->wait_sets.close_in_child();
        channel->wake.reset();
        channel->pulse_receive.reset();
        for (PulseEnd &end : channel->pulse_ends) {
            end.socket->reset();
        }
        if (channel->pulse_send) {
            channel->pulse_send->reset();
        }
        new (std::nothrow) std::shared_ptr<Channel>(channel); // likewise
    }
    server.channels.clear();
    server.descriptors.clear();
    server_lock.unlock();
}

} // namespace

Server &Server::instance() {
    static Server *const server = [] {
        wake_lent_threads(); // makes the queue, whose lock a fork must take after this one
        pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
        return new Server;
    }();
    return *server;
}

std::shared_ptr<Channel> Server::find_channel(int number) {
    const MutexLock guard(server_lock);
    const auto found = channels.find(number);
    return found == channels.end() ? nullptr : found->second;
}

Lane *Server::find_open_lane(const Source &source) {
    Client *const client = find_client(source.serial);
    if (!client || source.lane >= client->lanes.size()) {
        return nullptr;
    }
    Lane &lane = client->lanes[source.lane];
    const bool is_open =
        lane.incarnation == source.incarnation && lane.socket.fd >= 0 && !lane.socket.closing;
    return is_open ? &lane : nullptr;
}

void Server::watch_lane_again(const Source &source) {
    Lane *const lane = find_open_lane(source);
    if (!lane || !lane->is_unwatched) {
        return;
    }
    Client &client = *find_client(source.serial);
    lane->is_unwatched = false;
    lane->quick = 0;
    if (client.channel->wait_sets.resume(lane->socket.fd, {lane_events, source.pack()})) {
        client.words->lane(source.lane).unwatched = 0;
    } else {
        disconnect(client);
    }
}

Lane *Server::find_waiting(const ReceiveId &id, Client **client) {
    Client *found = find_client(id.serial);
    if (!found || !found->is_connected() || id.lane >= found->lanes.size()) {
        return nullptr;
    }
    Lane &lane = found->lanes[id.lane];
    if (!lane.owes_answer() || lane.exchange != id.exchange || lane.socket.fd < 0 ||
        lane.socket.closing) {
        return nullptr;
    }
    *client = found;
    return &lane;
}

void Server::forget_owed(const ReceiveId &id) {
    Client *client = find_client(id.serial);
    if (!client) {
        if (id.serial <= IPC_CONNECTIONS_MAX && owed[id.serial] > 0) {
            --owed[id.serial];
        }
        return;
    }
    if (id.lane >= client->lanes.size()) {
        return;
    }
    Lane &lane = client->lanes[id.lane];
    if (lane.exchange == id.exchange && lane.state == LaneState::closed_owing) {
        lane.state = LaneState::closed;
    }
}

void Server::pin(Client &client, PinnedFd &socket) {
    ++socket.pins;
    ++client.pins;
}

void Server::unpin(uint32_t serial, int lane) {
    Client &client = *clients[serial]; // pinned, so it exists
    PinnedFd &socket = lane < 0 ? client.control : client.lanes[static_cast<size_t>(lane)].socket;
    --client.pins;
    if (--socket.pins == 0 && socket.closing) {
        close_client_socket(socket.fd);
        socket = PinnedFd();
    }
    erase_if_finished(client);
}

void Server::close_socket(Client &client, PinnedFd &socket) {
    if (socket.fd < 0 || socket.closing) {
        return;
    }
    client.channel->wait_sets.unwatch(socket.fd);
    descriptors.give(client.uid, &socket == &client.control ? ClientDescriptors::of_socket
                                                            : ClientDescriptors::of_lane);
    if (socket.pins > 0) {
        socket.closing = true;
        return;
    }
    close_client_socket(socket.fd);
    socket = PinnedFd();
}

void Server::close_lane(Client &client, Lane &lane) {
    // The thread that dispatches the lane's last message still delays the disconnect pulse.
    if (lane.owes_answer()) {
        lane.state = LaneState::closed_owing;
    } else if (lane.state == LaneState::idle) {
        lane.state = LaneState::closed;
    }
    lane.kept.reset();
    lane.answer_file.reset();
    lane.had_long_answer = false;
    lane.is_unwatched = false;
    close_socket(client, lane.socket);
}

// Only edge-triggered events have to be reported again.
void Server::report_again(const Source &source) {
    Client *client = find_client(source.serial);
    if (!client || !client->is_connected()) {
        return;
    }
    WatchedSocket watched = {0, source.pack()};
    int socket = -1;
    if (source.kind == Source::client_lane && source.lane < client->lanes.size()) {
        const Lane &lane = client->lanes[source.lane];
        socket =
            lane.incarnation == source.incarnation && !lane.socket.closing ? lane.socket.fd : -1;
        watched.events = lane_events;
    } else if (source.kind == Source::client_outlet && source.lane < client->outlets.size()) {
        const PulseOutlet &outlet = client->outlets[source.lane];
        socket = outlet.incarnation == source.incarnation ? outlet.socket.get() : -1;
        watched.events = outlet.waiting.empty() ? outlet_events : outlet_events | EPOLLOUT;
    }
    if (socket >= 0) {
        client->channel->wait_sets.watch_again(socket, watched);
    }
}

void Server::give_up(const Source &source) {
    const bool is_clients = source.kind == Source::client_control ||
                            source.kind == Source::client_lane ||
                            source.kind == Source::client_outlet;
    if (Client *client = is_clients ? find_client(source.serial) : nullptr) {
        disconnect(*client);
    }
}

void Server::close_outlet(Client &client, PulseOutlet &outlet) {
    if (outlet.socket) {
        client.channel->wait_sets.unwatch(outlet.socket.get());
        descriptors.give(client.uid, ClientDescriptors::of_socket);
        outlet = PulseOutlet();
    }
}

void Server::disconnect(Client &client) {
    if (!client.is_connected()) {
        return;
    }
    client.state = ClientState::gone;
    --client.channel->client_count;
    for (PulseOutlet &outlet : client.outlets) {
        close_outlet(client, outlet);
    }
    close_socket(client, client.control);
    for (Lane &lane : client.lanes) {
        close_lane(client, lane);
    }
    if (!(client.channel->flags & CHANNEL_DISCONNECT) || client.channel->destroyed) {
        client.state = ClientState::detached;
    }
    erase_if_finished(client);
}

void Server::release_pulse(Client &client, Lane &lane) {
    if (lane.holds_pulse) {
        lane.holds_pulse = false;
        --client.dispatching;
    }
}

void Server::erase_if_finished(Client &client) {
    if (client.state == ClientState::detached) {
        if (client.pins == 0) {
            const uint32_t serial = client.serial;
            owed[serial] =
                static_cast<uint8_t>(std::count_if(client.lanes.begin(), client.lanes.end(),
                                                   [](const Lane &lane) REQUIRES(server_lock) {
                                                       return lane.state == LaneState::closed_owing;
                                                   }));
            clients[serial].reset();
        }
        return;
    }
    if (client.state == ClientState::gone && client.dispatching == 0) {
        client.state = ClientState::pulse_sent;
        Channel &channel = *client.channel;
        (channel.first_pulse == 0 ? channel.first_pulse : clients[channel.last_pulse]->next_pulse) =
            client.serial;
        channel.last_pulse = client.serial;
        wake_receiver(channel);
    }
}

} // namespace vantro::platform
