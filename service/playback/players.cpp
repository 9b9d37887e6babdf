#include "service/playback/players.h"

#include <exception>
#include <random>

namespace vantro::service::playback {

Players::Players(catalogue::Catalogue &catalogue, const std::vector<std::string> &names,
                 const Engine::Clock &clock, const SoundMaker &make_sound)
    : ids_(catalogue), clock_watch_([this] { return wake_all(); }), file_checks_([this] {
          for (Player &player : players_) {
              player.check_file();
          }
          return std::nullopt;
      }) {
    std::random_device seed;
    for (const std::string &name : names) {
        players_.emplace_back(name, catalogue, ids_, clock, seed(), make_sound);
    }
}

// All threads before anything that one of them uses.
Players::~Players() {
    clock_watch_.stop();
    file_checks_.stop();
    for (Player &player : players_) {
        player.silence();
    }
}

std::optional<Error> Players::publish(const object_readers &readers,
                                      const publishing::Publisher::Log &log,
                                      std::function<void()> keep) {
    const Player::Calls calls = {
        [this](std::chrono::nanoseconds time) { clock_watch_.look_within(time); },
        [this] { file_checks_.look(); },
        std::move(keep),
    };
    for (Player &player : players_) {
        if (std::optional<Error> error = player.publish(readers, log, calls)) {
            return error;
        }
    }
    clock_watch_.start();
    file_checks_.start();
    for (Player &player : players_) {
        player.publish_changes(); // what was restored
    }
    return std::nullopt;
}

std::optional<std::chrono::nanoseconds> Players::wake_all() {
    publish_missed_sources();
    std::optional<std::chrono::nanoseconds> next;
    for (Player &player : players_) {
        if (const auto wake = player.wake(); wake && (!next || *wake < *next)) {
            next = wake;
        }
    }
    return next;
}

void Players::maker_gone(uint64_t number) noexcept {
    for (Player &player : players_) {
        player.maker_gone(number);
    }
}

void Players::source_changed(int32_t id) {
    try {
        for (Player &player : players_) {
            player.source_changed(id);
        }
    } catch (const std::exception &) {
        // There was no memory for it. The next round of the clock's thread tells all sources again.
        sources_missed_ = true;
        clock_watch_.look();
    }
}

void Players::publish_missed_sources() {
    if (!sources_missed_.exchange(false)) {
        return;
    }
    try {
        for (Player &player : players_) {
            player.sources_changed();
        }
    } catch (...) {
        sources_missed_ = true; // the worker calls again
        throw;
    }
}

} // namespace vantro::service::playback
