#include "service/options.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <vantro/protocol.h>
#include <vantro/version.h>

namespace vantro::service {

namespace {

constexpr int exit_usage = 2;

// True when all of `text` is a number in that base within the bounds.
template <typename Number>
bool read_number(const std::string &text, int base, Number least, Number most, Number &number) {
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc() && stop == end && number >= least && number <= most;
}

// Validators return an error text, which is printed after the option's name, or "".

std::string check_permissions(const std::string &text) {
    unsigned bits = 0;
    return read_number(text, 8, 0u, 0777u, bits)
               ? ""
               : fmt::format("'{}' is not an octal number from 0 to 777", text);
}

std::string check_id(const std::string &text) {
    uint32_t id = 0; // the highest value means "no one" to the host
    return read_number(text, 10, 0u, UINT32_MAX - 1, id)
               ? ""
               : fmt::format("'{}' is not the number of a user or group", text);
}

std::string check_threads(const std::string &text) {
    int count = 0;
    return read_number(text, 10, 1, threads_max, count)
               ? ""
               : fmt::format("'{}' is not a number from 1 to {}", text, threads_max);
}

bool printable(const std::string &text) {
    return std::none_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    });
}

// A name becomes a directory's in the place where players publish themselves.
std::string check_player(const std::string &name) {
    if (name.empty() || name.size() > VANTRO_PLAYER_NAME_MAX) {
        return fmt::format("'{}' does not have 1 to {} characters", name, VANTRO_PLAYER_NAME_MAX);
    }
    if (name.find('/') != std::string::npos || name == "." || name == ".." || !printable(name)) {
        return fmt::format("'{}' cannot be the name of a player", name);
    }
    return "";
}

std::string check_capabilities(const std::string &list) {
    const bool gap = list.empty() || list.front() == ',' || list.back() == ',' ||
                     list.find(",,") != std::string::npos;
    if (gap || list.find(' ') != std::string::npos || !printable(list)) {
        return fmt::format("'{}' is not a list of capabilities joined by commas", list);
    }
    return "";
}

std::string check_lists(const std::vector<std::string> &music,
                        const std::vector<std::string> &players) {
    if (music.size() > music_max) {
        return fmt::format("--music: more than {} directories", music_max);
    }
    if (players.size() > players_max) {
        return fmt::format("--player: more than {} players", players_max);
    }
    for (auto name = players.begin(); name != players.end(); ++name) {
        if (std::find(players.begin(), name, *name) != name) {
            return fmt::format("--player: '{}' is named twice", *name);
        }
    }
    return "";
}

// NAME is for every player, PLAYER=NAME for one. Names of devices may have a `=` as well, but not
// before a slash.
std::string read_devices(const std::vector<std::string> &given, Options &options) {
    for (const std::string &each : given) {
        const size_t equals = each.find_first_of("/=");
        const bool for_one = equals != std::string::npos && each[equals] == '=';
        const std::string player = for_one ? each.substr(0, equals) : "";
        const std::string device = for_one ? each.substr(equals + 1) : each;
        const auto &players = options.players;
        if (for_one && std::find(players.begin(), players.end(), player) == players.end()) {
            return fmt::format("--audio-device: '{}' is for a player that is not hosted", each);
        }
        if (device.empty() || !printable(device)) {
            return fmt::format("--audio-device: '{}' names no device", each);
        }
        if (!options.audio_devices.emplace(player, device).second) {
            return fmt::format("--audio-device: '{}' is a second one for the same players", each);
        }
    }
    return "";
}

// Words that an option can have, and what each stands for.
template <typename Value>
struct Word {
    const char *word;
    Value value;
};

constexpr Word<Audio> audio_words[] = {
    {"auto", Audio::automatic}, {"mpv", Audio::mpv}, {"clock", Audio::clock}};
constexpr Word<const char *> replaygain_words[] = {
    {"track", "track"}, {"album", "album"}, {"off", "no"}};

template <typename Words>
auto find_word(const Words &words, const std::string &text) {
    return std::find_if(std::begin(words), std::end(words),
                        [&](const auto &each) { return text == each.word; });
}

template <typename Words>
auto one_of(const Words &words) {
    return [&words](const std::string &text) -> std::string {
        return find_word(words, text) != std::end(words)
                   ? ""
                   : fmt::format("'{}' is none of its values", text);
    };
}

// What the options of sound are given.
struct AudioTexts {
    std::string audio = "auto";
    std::string replaygain = "off";
    std::vector<std::string> devices;
};

void add_audio_options(CLI::App &app, AudioTexts &texts, bool &list_devices) {
    app.add_option("--audio", texts.audio,
                   "mpv, clock (nothing is heard), or auto: mpv where an output opens, else clock "
                   "(default: auto)")
        ->type_name("HOW")
        ->check(one_of(audio_words));
    app.add_option("--audio-device", texts.devices,
                   "Output, as --list-audio-devices names it, of all players or of one; 'null' "
                   "plays to nobody, 'pcm/FILE' writes a WAV file; may be given several times")
        ->type_name("[PLAYER=]NAME")
        ->allow_extra_args(false);
    app.add_option("--replaygain", texts.replaygain,
                   "Loudness as the files state it: track, album or off (default: off)")
        ->type_name("HOW")
        ->check(one_of(replaygain_words));
    app.add_flag("--list-audio-devices", list_devices,
                 "Prints the outputs that there are, and ends");
}

// Under permission bits, those users may follow who may connect, which takes reading and writing.
// Under capabilities, the owner may and, if one is named, a group: a file knows no capabilities.
object_readers readers_of(const std::string &perms, const std::string &uid, const std::string &gid,
                          bool by_capability) {
    object_readers readers = {OBJECT_READERS_OWN, OBJECT_READERS_OWN, 0};
    read_number(uid, 10, 0u, UINT32_MAX - 1, readers.uid);
    read_number(gid, 10, 0u, UINT32_MAX - 1, readers.gid);
    unsigned bits = 0666;
    read_number(perms, 8, 0u, 0777u, bits);
    if (by_capability) {
        bits = gid.empty() ? 0600 : 0660;
    }
    readers.mode = bits & bits << 1 & 0444;
    return readers;
}

// The service's permissions in the form that the messaging layer takes.
std::string permissions_of(const std::string &perms, const std::string &uid,
                           const std::string &gid) {
    std::string permissions;
    for (const auto &[name, value] : {std::pair{"perms", perms}, {"uid", uid}, {"gid", gid}}) {
        if (!value.empty()) {
            permissions += fmt::format("{}{}={}", permissions.empty() ? "" : ",", name, value);
        }
    }
    return permissions;
}

bool refuse(const std::string &what, int &exit_code) {
    fmt::print(stderr, "vantrod: {}\nTry 'vantrod --help'.\n", what);
    exit_code = exit_usage;
    return false;
}

} // namespace

bool parse_options(int argc, char **argv, Options &options, int &exit_code) {
    CLI::App app{"Hosts named players that play directories of music.", "vantrod"};
    std::string perms;
    std::string uid;
    std::string gid;
    std::string threads;
    AudioTexts audio;
    app.set_version_flag("--version", "vantrod " VANTRO_VERSION);
    app.add_option("--music", options.music, "Directory of music; may be given several times")
        ->type_name("DIR")
        ->allow_extra_args(false);
    app.add_option("--player", options.players,
                   "Name of a player to host; may be given several times (default: main)")
        ->type_name("NAME")
        ->allow_extra_args(false)
        ->check(check_player);
    app.add_option("--state", options.state,
                   "Directory for the catalogue (default: $XDG_STATE_HOME/vantro, else "
                   "~/.local/state/vantro)")
        ->type_name("DIR");
    CLI::Option *const perms_option =
        app.add_option("--perms", perms, "Permission bits that clients need (default: 666)")
            ->type_name("OCTAL")
            ->check(check_permissions);
    app.add_option("--uid", uid, "User that owns the service (default: who starts it)")
        ->type_name("N")
        ->check(check_id);
    app.add_option("--gid", gid, "Group of the service (default: of who starts it)")
        ->type_name("N")
        ->check(check_id);
    app.add_option("--require", options.capabilities,
                   "Capabilities that clients must hold, instead of permission bits; then only "
                   "owner and, where it is named, group may follow the players")
        ->type_name("CAP[,CAP]")
        ->check(check_capabilities)
        ->excludes(perms_option);
    app.add_option("--threads", threads,
                   fmt::format("Threads that answer requests, 1 to {} (default: {})", threads_max,
                               options.threads))
        ->type_name("N")
        ->check(check_threads);
    add_audio_options(app, audio, options.list_audio_devices);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &success) {
        exit_code = app.exit(success);
        return false;
    } catch (const CLI::ParseError &error) {
        return refuse(error.what(), exit_code);
    }

    if (const std::string error = check_lists(options.music, options.players); !error.empty()) {
        return refuse(error, exit_code);
    }
    if (options.players.empty()) {
        options.players.emplace_back("main");
    }
    if (const std::string error = read_devices(audio.devices, options); !error.empty()) {
        return refuse(error, exit_code);
    }
    options.audio = find_word(audio_words, audio.audio)->value;
    options.replaygain = find_word(replaygain_words, audio.replaygain)->value;
    if (!threads.empty()) {
        read_number(threads, 10, 1, threads_max, options.threads);
    }
    options.readers = readers_of(perms, uid, gid, !options.capabilities.empty());
    options.permissions = permissions_of(perms, uid, gid);
    return true;
}

} // namespace vantro::service
