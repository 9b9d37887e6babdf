// What each player service must provide for the comparison: a running service and one client of it.
#ifndef VANTRO_BENCH_PEERS_PLAYER_H
#define VANTRO_BENCH_PEERS_PLAYER_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "bench/peers/turns.h"

namespace vantro::bench::peers {

inline constexpr int page_songs = 100;

// When the follower last learned of a change.
struct Told {
    std::atomic<int64_t> at_ns{0};
    std::atomic<uint32_t> times{0};

    void now() {
        at_ns = now_ns();
        ++times;
        times.notify_one();
    }
};

// A running service with a client that is connected to it.
class Player {
  public:
    Player() = default;
    virtual ~Player() = default; // Ends the service.
    Player(const Player &) = delete;
    Player &operator=(const Player &) = delete;

    virtual void wait_until_scanned(int songs) = 0;
    // Queues all songs, and plays the first, which lasts longer than any measurement.
    virtual void play_all() = 0;

    virtual void repeat(bool on) = 0;
    virtual void pause(bool on) = 0;
    // The player's state.
    virtual void state() = 0;
    // The content of a status line: the player's state, the queue's length, the song with its tags,
    // the position, the volume.
    virtual void status() = 0;
    // Names of all songs; returns how many.
    virtual int listing() = 0;
    // page_songs songs with tags, from the catalogue or from the queue.
    virtual void page(int offset) = 0;
    virtual void queue_page(int offset) = 0;
    // The first page_songs results with tags; returns how many.
    virtual int search(const std::string &term) = 0;
    // Notes in `told` each change of the repeat mode, on a connection of its own, until the service
    // ends.
    virtual void follow(Told &told) = 0;
    virtual int64_t pss_bytes() const = 0;
};

// Starts the service and connects.
// @param music the collection.
// @param state a directory in which the service keeps its files; it may have files of an earlier
//   service.
std::unique_ptr<Player> start(const std::string &music, const std::string &state);

} // namespace vantro::bench::peers

#endif
