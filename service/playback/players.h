// All players of the service, and the two threads that they share. Each sound has its own thread.
// One thread watches the clock. It wakes at ends of tracks, and once a second while a player plays,
// so that both are published in time; while nothing plays, it sleeps without a timer. The other
// thread checks the file of each track that starts. That may wait for a disk, which must delay
// neither answers nor the clock.
#ifndef VANTRO_SERVICE_PLAYBACK_PLAYERS_H
#define VANTRO_SERVICE_PLAYBACK_PLAYERS_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "service/options.h"
#include "service/playback/player.h"
#include "service/playback/worker.h"

namespace vantro::service::playback {

class Players {
  public:
    // Borrows the catalogue, which outlives this. Names are unique; at most players_max. Publishing
    // and the threads start with publish().
    Players(catalogue::Catalogue &catalogue, const std::vector<std::string> &names,
            const Engine::Clock &clock, const SoundMaker &make_sound = nullptr);
    ~Players();
    Players(const Players &) = delete;
    Players &operator=(const Players &) = delete;

    // Starts the threads, and publishes all players for those readers until the destructor. Call it
    // once. Returns an error if it fails.
    // @param keep called on any thread after a change other than the passing of time.
    std::optional<Error> publish(const object_readers &readers,
                                 const publishing::Publisher::Log &log,
                                 std::function<void()> keep = nullptr);

    // Adds a player, which is published like the others. Call it after publish(), one thread at a
    // time. Other threads see the player when it is complete.
    // @param restore called with the player's place, before the player is published. Returns an
    //     error if it fails.
    std::optional<Error> add(const std::string &name, const SoundMaker &make_sound,
                             const std::function<void(size_t at, Player &player)> &restore);

    // Whether the thread that watches the clock has completed a round since the previous call,
    // which requested one. One thread at a time.
    bool clock_goes();

    // See Player::maker_gone(). Any thread.
    void maker_gone(uint64_t number) noexcept;

    // A source or its contents have changed. Any thread.
    void source_changed(int32_t source);

    class Iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Player;
        using difference_type = std::ptrdiff_t;
        using pointer = Player *;
        using reference = Player &;

        Iterator() = default;
        explicit Iterator(const std::unique_ptr<Player> *at) : at_(at) {}
        Player &operator*() const { return **at_; }
        Player *operator->() const { return at_->get(); }
        Iterator &operator++() {
            ++at_;
            return *this;
        }
        Iterator operator++(int) { return Iterator(at_++); }
        bool operator==(const Iterator &other) const = default;

      private:
        const std::unique_ptr<Player> *at_ = nullptr;
    };

    // Any thread. Players that are added later come after these.
    Iterator begin() const { return Iterator(players_.data()); }
    Iterator end() const { return Iterator(players_.data() + size()); }
    size_t size() const { return count_.load(std::memory_order_acquire); }
    Player &operator[](size_t at) const { return *players_[at]; }

  private:
    std::optional<std::chrono::nanoseconds> wake_all();
    void publish_missed_sources();

    void make(const std::string &name, const SoundMaker &make_sound);

    catalogue::Catalogue &catalogue_;
    const Engine::Clock clock_;
    SessionIds ids_;
    object_readers readers_ = {};
    publishing::Publisher::Log log_;
    Player::Calls calls_;
    std::vector<std::unique_ptr<Player>> players_; // the vector's length and places never change
    std::atomic<size_t> count_ = 0;                // the number of present players
    std::atomic<bool> sources_missed_ = false;
    uint64_t rounds_before_ = 0;
    Worker clock_watch_;
    Worker file_checks_;
};

} // namespace vantro::service::playback

#endif
