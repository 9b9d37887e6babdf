#include "bridges/mpd/server.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include "bridges/sockets/memory.h"
#include "bridges/sockets/signals.h"
#include "bridges/sockets/wait_time.h"

namespace vantro::mpd {

using sockets::has_memory;

Server::Server(std::vector<Listener> listeners, const std::string &player, size_t clients_max,
               Passwords passwords)
    : listeners_(std::move(listeners)), partitions_(player), clients_max_(clients_max),
      passwords_(std::move(passwords)), epoll_(epoll_create1(EPOLL_CLOEXEC)),
      signals_(sockets::ending_signals()) {
    if (!epoll_ || !signals_) {
        throw std::runtime_error("no descriptor is left");
    }
    bool all = watch(EPOLL_CTL_ADD, signals_.get(), EPOLLIN);
    for (const Listener &each : listeners_) {
        all = all && watch(EPOLL_CTL_ADD, each.descriptor(), EPOLLIN);
    }
    if (!all) {
        throw std::runtime_error("the sockets cannot be watched");
    }
}

bool Server::watch(int operation, int descriptor, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    return epoll_ctl(epoll_.get(), operation, descriptor, &event) == 0;
}

bool Server::is_listener(int descriptor) const {
    return std::any_of(listeners_.begin(), listeners_.end(), [descriptor](const Listener &each) {
        return each.descriptor() == descriptor;
    });
}

// Milliseconds until something is due without an event; -1: nothing is due.
int Server::timeout() const {
    if (std::any_of(clients_.begin(), clients_.end(),
                    [](const auto &each) { return each.second.busy() || each.second.ended(); })) {
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
        if (!retry && watch.clients > 0 && watch.descriptor < 0) { // it could not be watched
            wait.end_at(std::chrono::steady_clock::now() + sockets::shortage_pause);
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
                has_memory([&] { accept(descriptor); });
            } else if (const auto found = clients_.find(descriptor); found != clients_.end()) {
                Client &client = found->second;
                if (client.wants_input() && !has_memory([&] { client.receive(); })) {
                    client.drop();
                }
            }
        }
        has_memory([&] { look_after_players(); });
        serve_clients();
        // Handles changes and messages that a client has just made before their events wake this
        // thread.
        bool told = false;
        has_memory([&] { told = look_after_players(); });
        if (told || has_unsent()) {
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
            // The connection stays in the backlog, so the loop would return at once.
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
    setsockopt(made.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on); // fails on a Unix socket
    const int descriptor = made.get();
    client_events_[descriptor] = EPOLLIN;
    clients_.try_emplace(descriptor, std::move(made), clients_, partitions_.default_partition(),
                         partitions_, catalogue_, passwords_);
    if (!watch(EPOLL_CTL_ADD, descriptor, EPOLLIN)) {
        clients_.erase(descriptor);
    }
}

void Server::listen_again() {
    if (listening_) {
        return;
    }
    listening_ = true;
    for (const Listener &each : listeners_) {
        listening_ = watch(EPOLL_CTL_MOD, each.descriptor(), EPOLLIN) && listening_;
    }
    listen_again_at_ = std::chrono::steady_clock::now() + sockets::shortage_pause;
}

void Server::notify(const Partition &partition, const Subsystems &changed) {
    for (auto &entry : clients_) {
        Client &client = entry.second;
        if (&client.partition() == &partition && !has_memory([&] { client.notify(changed); })) {
            client.drop();
        }
    }
}

// A player without clients is not watched: while it plays, it has an event every second.
void Server::watch_player(Partition &partition, Watch &watching) {
    const int wanted = watching.clients > 0 ? partition.descriptor() : -1;
    if (wanted == watching.descriptor && partition.connections() == watching.connection) {
        return;
    }
    if (watching.descriptor >= 0 && partition.connections() == watching.connection) {
        watch(EPOLL_CTL_DEL, watching.descriptor, 0);
    }
    const bool watched = wanted >= 0 && watch(EPOLL_CTL_ADD, wanted, EPOLLIN);
    watching.descriptor = watched ? wanted : -1;
    watching.connection = partition.connections();
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
            Subsystems changed;
            if (!has_memory([&] {
                    partition.reconnect();
                    changed = partition.take_events();
                })) {
                changed = partition.miss_events();
            }
            if (changed.any()) {
                notify(partition, changed);
                told = true;
            }
        }
        watch_player(partition, watching);
    }
    return told;
}

bool Server::has_unsent() const {
    return std::any_of(clients_.begin(), clients_.end(), [this](const auto &each) {
        return each.second.wants_output() && (client_events_.at(each.first) & EPOLLOUT) == 0;
    });
}

void Server::watch_client(Client &client) {
    uint32_t events = client.wants_input() ? static_cast<uint32_t>(EPOLLIN) : 0;
    events |= client.wants_output() ? static_cast<uint32_t>(EPOLLOUT) : 0;
    if (std::exchange(client_events_[client.descriptor()], events) != events &&
        !watch(EPOLL_CTL_MOD, client.descriptor(), events)) {
        client.drop();
    }
}

void Server::serve_clients() {
    for (auto at = clients_.begin(); at != clients_.end();) {
        Client &client = at->second;
        if (!has_memory([&] { client.work(); }) || client.ended()) {
            const Partition &partition = client.partition();
            const bool was_subscribed = !client.mailbox.channels().empty();
            client_events_.erase(at->first);
            at = clients_.erase(at);
            if (was_subscribed) {
                notify(partition, only(Subsystem::subscription));
            }
            listen_again();
            continue;
        }
        watch_client(client);
        ++at;
    }
}

} // namespace vantro::mpd
