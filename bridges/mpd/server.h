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
    // @param clients_max how many are served; more are turned away.
    // @throws std::runtime_error if the system has no descriptor left.
    Server(std::vector<Listener> listeners, const std::string &player, size_t clients_max,
           Passwords passwords);

    // Serves until the process is asked to end.
    void run();

  private:
    // What the loop waits for at a player.
    struct Watch {
        int descriptor = -1;
        uint64_t connection = 0; // Of the partition; a descriptor's number may come again.
        size_t clients = 0;
    };

    void watch(int operation, int descriptor, uint32_t events);
    int timeout() const;
    bool is_listener(int descriptor) const;
    void accept(int listener);
    // @return whether there was something to tell clients.
    bool look_after_players();
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
    std::map<int, Client> clients_;
    std::map<int, uint32_t> client_events_; // What is waited for at each of them.
    std::map<const Partition *, Watch> watches_;
};

} // namespace vantro::mpd

#endif
