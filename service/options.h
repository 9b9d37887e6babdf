// What vantrod is told on its command line.
#ifndef VANTRO_SERVICE_OPTIONS_H
#define VANTRO_SERVICE_OPTIONS_H

#include <algorithm>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <vantro/platform/objects.h>

namespace vantro::service {

// More players than any device has zones, and few enough that a mistake in a script shows.
inline constexpr size_t players_max = 256;

// More than anyone has directories of music, and few enough that the list of sources fits the 65536
// bytes in which clients take it.
inline constexpr size_t music_max = 32;

inline constexpr int threads_max = 64;

enum class Audio { automatic, mpv, clock };

struct Options {
    std::vector<std::string> music;
    std::string state; // "" for the default place
    std::vector<std::string> players;
    std::string capabilities; // "" where permission bits decide instead
    std::string permissions;  // as msgserver_add() takes them
    // Who may follow the players: those who may connect, as far as a file can say it.
    object_readers readers = {OBJECT_READERS_OWN, OBJECT_READERS_OWN, 0444};
    // A service that hands over has two threads more than there are processors.
    int threads =
        std::clamp(static_cast<int>(std::thread::hardware_concurrency()) + 2, 4, threads_max);

    Audio audio = Audio::automatic;
    // By the player's name; "" for every other player. As MpvOptions::device.
    std::map<std::string, std::string> audio_devices;
    std::string replaygain = "no"; // as mpv has it
    bool list_audio_devices = false;
};

// Reads the command line. Returns true to go on; otherwise the program ends with `exit_code`, and
// what there was to say has been said.
bool parse_options(int argc, char **argv, Options &options, int &exit_code);

} // namespace vantro::service

#endif
