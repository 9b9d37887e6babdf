// The loop: one thread waits for clients, players and signals, and serves them in turn.
#ifndef VANTRO_BRIDGES_MPD_SERVER_H
#define VANTRO_BRIDGES_MPD_SERVER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/client.h"
#include "bridges/mpd/partitions.h"
#include "bridges/mpd/permissions.h"
#include "bridges/sockets/descriptor.h"
#include "bridges/sockets/listener.h"

namespace vantro::mpd {

using sockets::Descriptor;
using sockets::Listener;

class Server {
  public:
    // @param clients_max the number of clients that are served; further ones are refused.
    // @throws std::runtime_error if the system has no descriptor left.
    Server(std::vector<Listener> listeners, const std::string &player, size_t clients_max,
           Passwords passwords);

    // Serves until SIGTERM or SIGINT.
    void run();

  private:
    // The loop's watch on a player.
    struct Watch {
        int descriptor = -1;
        uint64_t connection = 0; // Of the partition; a descriptor's number may be reused.
        size_t clients = 0;
    };

    // @return whether the system had memory for it.
    bool watch(int operation, int descriptor, uint32_t events);
    int timeout() const;
    bool is_listener(int descriptor) const;
    void accept(int listener);
    // @return whether there were changes to report to clients.
    bool look_after_players();
    // Whether a client got a message from another client that was served after it.
    bool has_unsent() const;
    void watch_player(Partition &partition, Watch &watch);
    void notify(const Partition &partition, const Subsystems &changed);
    void serve_clients();
    void watch_client(Client &client);
    void listen_again();

    std::vector<Listener> listeners_;
    Partitions partitions_;
    Catalogue catalogue_;
    const size_t clients_max_;
    const Passwords passwords_;
    Descriptor epoll_;
    Descriptor signals_;
    bool listening_ = true; // Not while descriptors are short.
    std::chrono::steady_clock::time_point listen_again_at_{};
    Clients clients_;
    std::map<int, uint32_t> client_events_; // The awaited events of each client.
    std::map<const Partition *, Watch> watches_;
};

} // namespace vantro::mpd

#endif
