// The loop: one thread waits for clients, players and signals, and serves them in turn.
#ifndef VANTRO_BRIDGES_WEB_SERVER_H
#define VANTRO_BRIDGES_WEB_SERVER_H

#include <cstdint>
#include <map>
#include <vector>

#include "bridges/sockets/descriptor.h"
#include "bridges/sockets/listener.h"
#include "bridges/web/http_server.h"
#include "bridges/web/players.h"

namespace vantro::web {

using sockets::Descriptor;
using sockets::Listener;

class Server {
  public:
    // @throws std::runtime_error if the system has no descriptor left.
    Server(std::vector<Listener> listeners, Players &players, Site &site,
           const HttpServer::Limits &limits);

    // Serves until SIGTERM or SIGINT.
    void run();

  private:
    // The loop's watch on a player.
    struct Watch {
        int descriptor = -1;
        uint64_t connection = 0; // Of the player; a descriptor's number may be reused.
        size_t streams = 0;
    };

    // @return whether the system had memory for it.
    bool watch(int operation, int descriptor, uint32_t events, uint64_t key);
    int timeout() const;
    void handle(uint64_t key, bool &ended);
    void accept(int listener);
    void set_listening(bool on);
    void end_stream(uint64_t id);
    bool look_after_players();
    void watch_player(PlayerLink &link, Watch &watch);

    std::vector<Listener> listeners_;
    Players &players_;
    Descriptor epoll_;
    Descriptor signals_;
    HttpServer http_;
    bool listening_ = true; // Not while descriptors are short.
    PlayerLink::Clock::time_point listen_again_at_{};
    uint64_t closed_seen_ = 0;
    std::map<PlayerLink *, Watch> watches_;
};

} // namespace vantro::web

#endif
