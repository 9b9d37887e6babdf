// Keeps the players in the state directory, so that they are back after a restart or a power cut.
//
// A change is written after one second, with everything that changed by then; while a player plays,
// its position every ten seconds. A file is replaced as a whole and synced: a crash leaves the old
// one or the new one. While nothing changes nothing is written, and the thread sleeps.
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

    // Brings the players back as they were kept, paused unless `resume`. Before they are published.
    void restore(bool resume);
    // The same for a player that is added later, at that place.
    void restore(size_t at, playback::Player &player, bool resume);

    // Begins to keep. Throws std::system_error if there is no thread to be had.
    void start();
    // Something has changed. Any thread.
    void look() { worker_.look_within(write_after); }
    // Writes what is not yet written, for the last time. If the start failed, the files are left
    // alone, so that a player that played goes on once a start succeeds.
    void finish();

  private:
    struct Kept {
        KeptPlayer player;
        bool session_written = false; // as `player` has it
        bool position_written = false;
        bool fails = false; // said already
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
    // In the order of the players, and as many as there can be; of the worker once it runs, but
    // that of a player which is not there yet.
    std::vector<std::unique_ptr<Kept>> kept_;
    bool keeps_ = false; // from start() to finish()
    playback::Worker worker_;
};

} // namespace vantro::service::state

#endif
