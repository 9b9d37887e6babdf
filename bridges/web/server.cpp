#include "bridges/web/server.h"

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

namespace vantro::web {
namespace {

// The key of an event: the kind is in the upper bits, a descriptor or a stream's number in the
// lower.
enum class Kind : uint64_t { signal, listener, http, player, stream };
constexpr unsigned kind_shift = 56;

uint64_t key_of(Kind kind, uint64_t number = 0) {
    return static_cast<uint64_t>(kind) << kind_shift | number;
}

// A telephone that leaves the network does not close its connection. The kernel's probes detect
// this, so that an open page need not wake this process.
void keep_alive(int socket) {
    const int on = 1;
    const int idle_seconds = 60;
    const int interval_seconds = 20;
    const int probes = 3;
    setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPIDLE, &idle_seconds, sizeof idle_seconds);
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPINTVL, &interval_seconds, sizeof interval_seconds);
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPCNT, &probes, sizeof probes);
}

} // namespace

Server::Server(std::vector<Listener> listeners, Players &players, Site &site,
               const HttpServer::Limits &limits)
    : listeners_(std::move(listeners)), players_(players), epoll_(epoll_create1(EPOLL_CLOEXEC)),
      signals_(sockets::ending_signals()), http_(site, limits) {
    if (!epoll_ || !signals_) {
        throw std::runtime_error("no descriptor is left");
    }
    bool all = watch(EPOLL_CTL_ADD, signals_.get(), EPOLLIN, key_of(Kind::signal)) &&
               watch(EPOLL_CTL_ADD, http_.descriptor(), EPOLLIN, key_of(Kind::http));
    for (const Listener &each : listeners_) {
        all = all && watch(EPOLL_CTL_ADD, each.descriptor(), EPOLLIN,
                           key_of(Kind::listener, static_cast<uint64_t>(each.descriptor())));
    }
    if (!all) {
        throw std::runtime_error("the sockets cannot be watched");
    }
    // The HTTP library does not watch suspended connections.
    http_.on_stream = [this](EventStream &stream) {
        if (!watch(EPOLL_CTL_ADD, stream.descriptor(), EPOLLRDHUP,
                   key_of(Kind::stream, stream.id()))) {
            stream.end();
        }
    };
}

bool Server::watch(int operation, int descriptor, uint32_t events, uint64_t key) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = key;
    return epoll_ctl(epoll_.get(), operation, descriptor, &event) == 0;
}

// Milliseconds until run() must act even if nothing happens; -1: never.
int Server::timeout() const {
    sockets::WaitTime wait(http_.timeout());
    for (const auto &[link, watching] : watches_) {
        const auto retry = link->retry_at();
        if (retry && watching.streams > 0) {
            wait.end_at(*retry);
        }
        if (!retry && watching.streams > 0 && watching.descriptor < 0) { // it could not be watched
            wait.end_at(PlayerLink::Clock::now() + sockets::shortage_pause);
        }
    }
    if (!listening_) {
        wait.end_at(listen_again_at_);
    }
    return wait.ms();
}

void Server::run() {
    std::array<epoll_event, 64> events;
    for (bool ended = false; !ended;) {
        const int count =
            epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), timeout());
        for (int i = 0; i < count; ++i) {
            handle(events[static_cast<size_t>(i)].data.u64, ended);
        }
        http_.run();
        bool notified = false;
        sockets::has_memory([&] { notified = look_after_players(); });
        if (notified) {
            http_.run(); // the library watches resumed connections only after this call
        }
        if (std::exchange(closed_seen_, http_.closed()) != http_.closed() ||
            (!listening_ && PlayerLink::Clock::now() >= listen_again_at_)) {
            set_listening(true);
        }
    }
}

void Server::handle(uint64_t key, bool &ended) {
    const uint64_t number = key & ((uint64_t{1} << kind_shift) - 1);
    switch (static_cast<Kind>(key >> kind_shift)) {
    case Kind::signal:
        ended = true;
        break;
    case Kind::listener:
        accept(static_cast<int>(number));
        break;
    case Kind::stream:
        end_stream(number);
        break;
    case Kind::http:
    case Kind::player:
        break; // look_after_players() handles it in each round
    }
}

void Server::accept(int listener) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    auto *const plain = reinterpret_cast<sockaddr *>(&address);
    const int made = ::accept4(listener, plain, &length, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (made >= 0) {
        keep_alive(made);
        http_.add(made, plain, length);
    } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        // The connection stays in the backlog, so the loop would return at once.
        set_listening(false);
        listen_again_at_ = PlayerLink::Clock::now() + sockets::shortage_pause;
    }
}

void Server::set_listening(bool on) {
    if (std::exchange(listening_, on) == on) {
        return;
    }
    bool all = true;
    for (const Listener &each : listeners_) {
        all = watch(EPOLL_CTL_MOD, each.descriptor(), on ? static_cast<uint32_t>(EPOLLIN) : 0,
                    key_of(Kind::listener, static_cast<uint64_t>(each.descriptor()))) &&
              all;
    }
    if (on && !all) {
        listening_ = false;
        listen_again_at_ = PlayerLink::Clock::now() + sockets::shortage_pause;
    }
}

void Server::end_stream(uint64_t id) {
    if (const auto found = http_.streams().find(id); found != http_.streams().end()) {
        watch(EPOLL_CTL_DEL, found->second->descriptor(), 0, 0);
        found->second->end(); // the next round's run() closes it
    }
}

// A player that no page follows is not watched: while it plays, it has an event every second.
void Server::watch_player(PlayerLink &link, Watch &watching) {
    const int wanted = watching.streams > 0 ? link.descriptor() : -1;
    if (wanted == watching.descriptor && link.connections() == watching.connection) {
        return;
    }
    if (watching.descriptor >= 0 && link.connections() == watching.connection) {
        watch(EPOLL_CTL_DEL, watching.descriptor, 0, 0);
    }
    const bool watched = wanted >= 0 && watch(EPOLL_CTL_ADD, wanted, EPOLLIN, key_of(Kind::player));
    watching.descriptor = watched ? wanted : -1;
    watching.connection = link.connections();
}

// @return whether streams have news.
bool Server::look_after_players() {
    bool notified = false;
    for (auto &[name, link] : players_.all()) {
        watches_[&link].streams = 0;
    }
    for (const auto &[id, stream] : http_.streams()) {
        ++watches_[&stream->link()].streams;
    }
    for (auto &[link, watching] : watches_) {
        link->set_followed(watching.streams > 0);
        if (watching.streams > 0) {
            link->reconnect();
            if (const Changes changed = link->take_events(); changed.any()) {
                for (const auto &[id, stream] : http_.streams()) {
                    if (&stream->link() == link) {
                        stream->notify(changed);
                        notified = true;
                    }
                }
            }
        }
        watch_player(*link, watching);
    }
    return notified;
}

} // namespace vantro::web
