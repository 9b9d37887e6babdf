// Saves the players in the state directory, so that a restart, also after a power cut, restores
// them.
//
// A change is written after one second, with all further changes made by then; while a player
// plays, its position is written every ten seconds. A file is replaced as a whole and synced: a
// crash leaves either the old one or the new one. While nothing changes, nothing is written, and
// the thread sleeps.
#ifndef VANTRO_SERVICE_STATE_KEEPER_H
#define VANTRO_SERVICE_STATE_KEEPER_H

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "service/error.h"
#include "service/playback/players.h"
#include "service/playback/worker.h"
#include "service/state/player_file.h"

namespace vantro::service::state {

inline constexpr std::chrono::seconds write_after{1};
inline constexpr std::chrono::seconds position_every{10};

class Keeper {
  public:
    using Log = std::function<void(int severity, const std::string &line)>;

    // Borrows the players, which outlive it. `directory` is made if it is missing.
    Keeper(playback::Players &players, std::filesystem::path directory, Log log);
    ~Keeper() { finish(); }

    // Restores the saved players, paused unless `resume`. Call it before they are published.
    void restore(bool resume);
    // The same for a player that is added later, at the place `at`.
    void restore(size_t at, playback::Player &player, bool resume);

    // Starts saving. Throws std::system_error if the thread cannot be made.
    void start();
    // Call it after a change. Any thread.
    void look() { worker_.look_within(write_after); }
    // Writes the remaining changes and ends saving. If start() was not reached, the files are not
    // changed, so that a player that was playing continues once a start succeeds.
    void finish();

  private:
    struct Kept {
        KeptPlayer player;
        bool session_written = false; // the file has the session in `player`
        bool position_written = false;
        bool fails = false; // the failure has been logged
    };

    std::optional<std::chrono::nanoseconds> keep_all();
    void keep(playback::Player &player, Kept &kept);
    std::optional<Error> write(const std::filesystem::path &file, const std::string &text);
    void set_aside(const std::filesystem::path &file, const std::string &why);
    std::filesystem::path folder_of(const playback::Player &player) const;

    playback::Players &players_;
    const std::filesystem::path directory_;
    const Log log_;
    std::mt19937_64 editions_{std::random_device{}()};
    // In the order of the players, with room for all possible ones. Once the worker runs, only it
    // uses the entries, except those of players that are not added yet.
    std::vector<std::unique_ptr<Kept>> kept_;
    bool keeps_ = false; // from start() to finish()
    playback::Worker worker_;
};

} // namespace vantro::service::state

#endif
