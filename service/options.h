// The command line and the configuration file of vantrod.
#ifndef VANTRO_SERVICE_OPTIONS_H
#define VANTRO_SERVICE_OPTIONS_H

#include <algorithm>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <vantro/platform/log.h>
#include <vantro/platform/objects.h>

#include "service/config/setting.h"

namespace vantro::service {

// More players than any device has zones, and few enough that a mistake in a script shows.
inline constexpr size_t players_max = 256;

// More than anyone has directories of music, and few enough that the list of sources fits the 65536
// bytes in which clients take it.
inline constexpr size_t music_max = 32;

inline constexpr int threads_max = 64;

enum class Audio { automatic, mpv, clock };

enum class Task { serve, list_audio_devices, check_config, print_config };

struct Options {
    std::vector<std::string> music;
    std::vector<std::string> media_roots;
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
    // By the player's name; "" for every other player.
    std::map<std::string, int> volume_limits;
    int log_level = LOG_SEVERITY_TRACE;
    bool resume = false; // what played before the restart plays on

    Task task = Task::serve;
    std::vector<config::Setting> settings; // every option, and where it comes from
    std::string config;                    // a whole file, if that is the task
};

// The output of a player; "" for mpv's choice.
std::string device_of(const Options &options, const std::string &player);

// The highest level of a player's volume, from 0 to 100.
int volume_limit_of(const Options &options, const std::string &player);

// Reads the command line. Returns true to go on; otherwise everything was printed, and the program
// ends with `exit_code`.
bool parse_options(int argc, char **argv, Options &options, int &exit_code);

// Reads the same command line again, when the file may have changed. Returns what is wrong, or "".
std::string read_options_again(int argc, char **argv, Options &options);

} // namespace vantro::service

#endif
