#include "bridges/mpd/server.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <new>
#include <stdexcept>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include "bridges/sockets/signals.h"
#include "bridges/sockets/wait_time.h"

namespace vantro::mpd {
namespace {

// @return whether the client can go on. Where memory ends, only the client that needs it does.
bool works(Client &client) {
    try {
        client.work();
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

} // namespace

Server::Server(std::vector<Listener> listeners, const std::string &player, size_t clients_max,
               Passwords passwords)
    : listeners_(std::move(listeners)), partitions_(player), clients_max_(clients_max),
      passwords_(std::move(passwords)), epoll_(epoll_create1(EPOLL_CLOEXEC)),
      signals_(sockets::ending_signals()) {
    if (!epoll_ || !signals_) {
        throw std::runtime_error("no descriptor is left");
    }
    watch(EPOLL_CTL_ADD, signals_.get(), EPOLLIN);
    for (const Listener &each : listeners_) {
        watch(EPOLL_CTL_ADD, each.descriptor(), EPOLLIN);
    }
}

void Server::watch(int operation, int descriptor, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    epoll_ctl(epoll_.get(), operation, descriptor, &event);
}

bool Server::is_listener(int descriptor) const {
    return std::any_of(listeners_.begin(), listeners_.end(), [descriptor](const Listener &each) {
        return each.descriptor() == descriptor;
    });
}

// Milliseconds until something is due without any news; -1: nothing is.
int Server::timeout() const {
    if (std::any_of(clients_.begin(), clients_.end(),
                    [](const auto &each) { return each.second.busy(); })) {
        return 0;
    }
    sockets::WaitTime wait;
    if (!listening_) {
        wait.end_at(listen_again_at_);
    }
    for (const auto &[partition, watch] : watches_) {
        const auto retry = partition->retry_at();
        if (retry && watch.clients > 0) {
            wait.end_at(*retry);
        }
    }
    return wait.ms();
}

void Server::run() {
    std::array<epoll_event, 64> events;
    while (true) {
        const int count =
            epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), timeout());
        for (int i = 0; i < count; ++i) {
            const int descriptor = events[static_cast<size_t>(i)].data.fd;
            if (descriptor == signals_.get()) {
                return;
            }
            if (is_listener(descriptor)) {
                accept(descriptor);
            } else if (const auto found = clients_.find(descriptor); found != clients_.end()) {
                if (found->second.wants_input()) {
                    found->second.receive();
                }
            }
        }
        look_after_players();
        serve_clients();
        // What a client has changed just now need not wait until its event wakes this thread.
        if (look_after_players()) {
            serve_clients();
        }
        if (!listening_ && std::chrono::steady_clock::now() >= listen_again_at_) {
            listen_again();
        }
    }
}

void Server::accept(int listener) {
    Descriptor made(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!made) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            // The connection stays where it is, so the loop would come back at once.
            for (const Listener &each : listeners_) {
                watch(EPOLL_CTL_MOD, each.descriptor(), 0);
            }
            listening_ = false;
            listen_again_at_ = std::chrono::steady_clock::now() + sockets::shortage_pause;
        }
        return;
    }
    if (clients_.size() >= clients_max_) {
        return;
    }
    const int on = 1;
    setsockopt(made.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on); // in vain on a path
    const int descriptor = made.get();
    clients_.try_emplace(descriptor, std::move(made), partitions_.default_partition(), partitions_,
                         catalogue_, passwords_);
    watch(EPOLL_CTL_ADD, descriptor, EPOLLIN);
    client_events_[descriptor] = EPOLLIN;
}

void Server::listen_again() {
    if (!std::exchange(listening_, true)) {
        for (const Listener &each : listeners_) {
            watch(EPOLL_CTL_MOD, each.descriptor(), EPOLLIN);
        }
    }
}

void Server::notify(const Partition &partition, const Subsystems &changed) {
    for (auto &[descriptor, client] : clients_) {
        if (&client.partition() == &partition) {
            client.notify(changed);
        }
    }
}

// A player without clients is not listened to: while it plays it would have something to tell
// every second.
void Server::watch_player(Partition &partition, Watch &watching) {
    const int wanted = watching.clients > 0 ? partition.descriptor() : -1;
    if (wanted == watching.descriptor && partition.connections() == watching.connection) {
        return;
    }
    if (watching.descriptor >= 0 && partition.connections() == watching.connection) {
        watch(EPOLL_CTL_DEL, watching.descriptor, 0);
    }
    watching.descriptor = wanted;
    watching.connection = partition.connections();
    if (wanted >= 0) {
        watch(EPOLL_CTL_ADD, wanted, EPOLLIN);
    }
}

bool Server::look_after_players() {
    bool told = false;
    for (auto &[partition, watching] : watches_) {
        watching.clients = 0;
    }
    for (auto &[descriptor, client] : clients_) {
        ++watches_[&client.partition()].clients;
    }
    for (Partition &partition : partitions_.all()) {
        Watch &watching = watches_[&partition];
        if (watching.clients > 0) {
            partition.reconnect();
            if (const Subsystems changed = partition.take_events(); changed.any()) {
                notify(partition, changed);
                told = true;
            }
        }
        watch_player(partition, watching);
    }
    return told;
}

void Server::watch_client(Client &client) {
    uint32_t events = client.wants_input() ? static_cast<uint32_t>(EPOLLIN) : 0;
    events |= client.wants_output() ? static_cast<uint32_t>(EPOLLOUT) : 0;
    if (std::exchange(client_events_[client.descriptor()], events) != events) {
        watch(EPOLL_CTL_MOD, client.descriptor(), events);
    }
}

void Server::serve_clients() {
    for (auto at = clients_.begin(); at != clients_.end();) {
        Client &client = at->second;
        if (!works(client) || client.ended()) {
            client_events_.erase(at->first);
            at = clients_.erase(at);
            listen_again();
            continue;
        }
        watch_client(client);
        ++at;
    }
}

} // namespace vantro::mpd
