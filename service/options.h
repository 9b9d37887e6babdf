// The command line and the configuration file of vantrod.
#ifndef VANTRO_SERVICE_OPTIONS_H
#define VANTRO_SERVICE_OPTIONS_H

#include <algorithm>
#include <array>
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

// More directories of music than anyone has, and few enough that the list of sources fits the 65536
// bytes that clients have room for.
inline constexpr size_t music_max = 32;

inline constexpr int threads_max = 64;

enum class Audio { automatic, mpv, clock };

enum class Task { serve, list_audio_devices, check_config, print_config };

struct Options {
    std::vector<std::string> music;
    std::vector<std::string> media_roots;
    std::string state; // "" for the default place
    std::vector<std::string> players;
    std::string capabilities; // "" if permission bits decide
    std::string permissions;  // in the form of msgserver_add()
    // Who may follow the players: users who may connect, as far as file permissions can express it.
    object_readers readers = {OBJECT_READERS_OWN, OBJECT_READERS_OWN, 0444};
    // A service that hands over has two threads more than there are processors.
    int threads =
        std::clamp(static_cast<int>(std::thread::hardware_concurrency()) + 2, 4, threads_max);

    Audio audio = Audio::automatic;
    // By the player's name; "" for every other player. Values as in MpvOptions::device.
    std::map<std::string, std::string> audio_devices;
    std::string replaygain = "no"; // mpv's value
    // By the player's name; "" for every other player.
    std::map<std::string, int> volume_limits;
    int log_level = LOG_SEVERITY_TRACE;
    bool resume = false; // players that were playing before the restart play on

    Task task = Task::serve;
    std::vector<config::Setting> settings; // every option, with its origin
    std::string config;                    // a complete file, for --print-config
};

// The beginning of a message about an option: "FILE:LINE: KEY: " if the option is from a file, else
// "--KEY: ".
std::string place_of(const Options &options, const std::string &key);

// The output of a player; "" for mpv's choice.
std::string device_of(const Options &options, const std::string &player);

// Outputs whose libraries have one state for the whole process: if two players open one at the same
// moment, both wait for ever (jack), or the service crashes (sdl).
inline constexpr std::array one_player_outputs = {"jack", "sdl"};

// Returns an error text if several players use one of `one_player_outputs`, else "".
std::string check_outputs(const Options &options);

// The highest level of a player's volume, from 0 to 100.
int volume_limit_of(const Options &options, const std::string &player);

// Reads the command line. Returns true if the service should run; otherwise the output was printed,
// and the program ends with `exit_code`.
bool parse_options(int argc, char **argv, Options &options, int &exit_code);

// Reads the same command line again after the file may have changed. Returns an error text, or "".
std::string read_options_again(int argc, char **argv, Options &options);

} // namespace vantro::service

#endif
