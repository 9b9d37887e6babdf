#include "service/playback/players.h"

#include <cerrno>
#include <exception>
#include <random>
#include <utility>

#include <fmt/format.h>

namespace vantro::service::playback {

Players::Players(catalogue::Catalogue &catalogue, const std::vector<std::string> &names,
                 const Engine::Clock &clock, const SoundMaker &make_sound)
    : catalogue_(catalogue), clock_(clock), ids_(catalogue), players_(players_max),
      clock_watch_("clock", [this] { return wake_all(); }), file_checks_("file checks", [this] {
          for (Player &player : *this) {
              player.check_file();
          }
          return std::nullopt;
      }) {
    for (const std::string &name : names) {
        make(name, make_sound);
        ++count_;
    }
}

// Makes the player after the last one. Other threads do not see it yet.
void Players::make(const std::string &name, const SoundMaker &make_sound) {
    players_.at(size()) = std::make_unique<Player>(name, catalogue_, ids_, clock_,
                                                   std::random_device()(), make_sound);
}

// All threads end before the data that they use.
Players::~Players() {
    clock_watch_.stop();
    file_checks_.stop();
    for (Player &player : *this) {
        player.silence();
    }
}

std::optional<Error> Players::publish(const object_readers &readers,
                                      const publishing::Publisher::Log &log,
                                      std::function<void()> keep) {
    readers_ = readers;
    log_ = log;
    calls_ = {
        [this](std::chrono::nanoseconds time) { clock_watch_.look_within(time); },
        [this] { file_checks_.look(); },
        std::move(keep),
    };
    for (Player &player : *this) {
        if (std::optional<Error> error = player.publish(readers, log, calls_)) {
            return error;
        }
    }
    clock_watch_.start();
    file_checks_.start();
    for (Player &player : *this) {
        player.publish_changes(); // the restored state
    }
    return std::nullopt;
}

std::optional<Error> Players::add(const std::string &name, const SoundMaker &make_sound,
                                  const std::function<void(size_t at, Player &player)> &restore) {
    const size_t at = size();
    if (at == players_max) {
        return Error(Error::Origin::system, ENOSPC, fmt::format("there are {} players", at));
    }
    make(name, make_sound);
    Player &player = *players_[at];
    restore(at, player);
    if (std::optional<Error> error = player.publish(readers_, log_, calls_)) {
        player.silence();
        players_[at].reset();
        return error;
    }
    count_.store(at + 1, std::memory_order_release);
    player.publish_changes(); // the restored state
    player.sources_changed(); // sources that changed before other threads could see the player
    player.prepare_sound();
    return std::nullopt;
}

std::optional<std::chrono::nanoseconds> Players::wake_all() {
    publish_missed_sources();
    std::optional<std::chrono::nanoseconds> next;
    for (Player &player : *this) {
        if (const auto wake = player.wake(); wake && (!next || *wake < *next)) {
            next = wake;
        }
    }
    return next;
}

bool Players::clock_goes() {
    const uint64_t rounds = clock_watch_.rounds();
    clock_watch_.look();
    return std::exchange(rounds_before_, rounds) != rounds;
}

void Players::maker_gone(uint64_t number) noexcept {
    for (Player &player : *this) {
        player.maker_gone(number);
    }
}

void Players::source_changed(int32_t id) {
    try {
        for (Player &player : *this) {
            player.source_changed(id);
        }
    } catch (const std::exception &) {
        // There was no memory. The next round of the clock's thread publishes all sources again.
        sources_missed_ = true;
        clock_watch_.look();
    }
}

void Players::publish_missed_sources() {
    if (!sources_missed_.exchange(false)) {
        return;
    }
    try {
        for (Player &player : *this) {
            player.sources_changed();
        }
    } catch (...) {
        sources_missed_ = true; // the worker calls again
        throw;
    }
}

} // namespace vantro::service::playback
