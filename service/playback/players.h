// All players of the service, and the two threads that they share. Sounds have threads of their
// own.
//
// One thread watches the clock. It wakes at ends of tracks, and once a second while something
// plays, so that both are published in time; while nothing plays it sleeps without a timer. The
// other thread checks the file of each track that starts. That may wait for a disk, and neither
// answers nor the clock may wait for it.
#ifndef VANTRO_SERVICE_PLAYBACK_PLAYERS_H
#define VANTRO_SERVICE_PLAYBACK_PLAYERS_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "service/playback/player.h"
#include "service/playback/worker.h"

namespace vantro::service::playback {

class Players {
  public:
    // Borrows the catalogue, which outlives this. Names are unique; at most 32767. Nothing is
    // published yet, and nothing happens by itself.
    Players(catalogue::Catalogue &catalogue, const std::vector<std::string> &names,
            const Engine::Clock &clock, const SoundMaker &make_sound = nullptr);
    ~Players();
    Players(const Players &) = delete;
    Players &operator=(const Players &) = delete;

    // Publishes all players for those readers, from now on until the end of this, and starts the
    // threads. Once. Returns why it cannot, if it cannot.
    // @param keep called, on any thread, when something other than the time has changed.
    std::optional<Error> publish(const object_readers &readers,
                                 const publishing::Publisher::Log &log,
                                 std::function<void()> keep = nullptr);

    // See Player::maker_gone(). Any thread.
    void maker_gone(uint64_t number) noexcept;

    // A source, or what it holds, has changed. Any thread.
    void source_changed(int32_t source);

    std::deque<Player>::iterator begin() { return players_.begin(); }
    std::deque<Player>::iterator end() { return players_.end(); }
    size_t size() const { return players_.size(); }
    Player &operator[](size_t at) { return players_[at]; }

  private:
    std::optional<std::chrono::nanoseconds> wake_all();
    void publish_missed_sources();

    SessionIds ids_;
    std::deque<Player> players_; // never changes; holds what cannot be moved
    std::atomic<bool> sources_missed_ = false;
    Worker clock_watch_;
    Worker file_checks_;
};

} // namespace vantro::service::playback

#endif
