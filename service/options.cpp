#include "service/options.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <vantro/platform/log.h>
#include <vantro/protocol.h>
#include <vantro/version.h>

#include "service/config/config_file.h"
#include "service/playback/engine.h"

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

// TOML writes octal numbers with this prefix.
std::string without_octal_sign(const std::string &text) {
    return text.starts_with("0o") ? text.substr(2) : text;
}

// An empty text, for example of a variable that is not set, is an error and does not select the
// default.
std::string check_directory(const std::string &text) {
    return text.empty() ? "'' is not the name of a directory" : "";
}

std::string check_id(const std::string &text) {
    uint32_t id = 0; // the highest value means "no id" to the kernel
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

// A player's name becomes the name of the directory in which the player publishes.
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

// NAME applies to every player, PLAYER=NAME to one. Names of devices may also contain `=`, but not
// before a slash.
std::string read_devices(const std::vector<std::string> &given, Options &options) {
    for (const std::string &each : given) {
        const size_t equals = each.find_first_of("/=");
        const bool for_one = equals != std::string::npos && each[equals] == '=';
        const std::string player = for_one ? each.substr(0, equals) : "";
        const std::string device = for_one ? each.substr(equals + 1) : each;
        const auto &players = options.players;
        if (for_one && std::find(players.begin(), players.end(), player) == players.end()) {
            return fmt::format("--audio-device: '{}' is for player '{}', which does not exist",
                               each, player);
        }
        if (device.empty() || !printable(device)) {
            return fmt::format("--audio-device: '{}' does not name a device", each);
        }
        if (!options.audio_devices.emplace(player, device).second) {
            return fmt::format("--audio-device: '{}' is a second one for the same players", each);
        }
    }
    return "";
}

// N applies to every player, PLAYER=N to one. Names of players may also contain `=`.
std::string read_volume_limits(const std::vector<std::string> &given, Options &options) {
    for (const std::string &each : given) {
        const size_t equals = each.rfind('=');
        const bool for_one = equals != std::string::npos;
        const std::string player = for_one ? each.substr(0, equals) : "";
        const auto &players = options.players;
        if (for_one && std::find(players.begin(), players.end(), player) == players.end()) {
            return fmt::format("--volume-limit: '{}' is for player '{}', which does not exist",
                               each, player);
        }
        int limit = 0;
        if (!read_number(for_one ? each.substr(equals + 1) : each, 10, 0, playback::volume_max,
                         limit)) {
            return fmt::format("--volume-limit: '{}' is not a number from 0 to {}", each,
                               playback::volume_max);
        }
        if (!options.volume_limits.emplace(player, limit).second) {
            return fmt::format("--volume-limit: '{}' is a second one for the same players", each);
        }
    }
    return "";
}

// The words that an option accepts, with their values.
template <typename Value>
struct Word {
    const char *word;
    Value value;
};

constexpr Word<Audio> audio_words[] = {
    {"auto", Audio::automatic}, {"mpv", Audio::mpv}, {"clock", Audio::clock}};
constexpr Word<int> log_levels[] = {
    {"error", LOG_SEVERITY_ERROR},   {"warning", LOG_SEVERITY_WARNING},
    {"notice", LOG_SEVERITY_NOTICE}, {"info", LOG_SEVERITY_INFO},
    {"debug", LOG_SEVERITY_DEBUG},   {"trace", LOG_SEVERITY_TRACE}};
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
        if (find_word(words, text) != std::end(words)) {
            return "";
        }
        std::string all;
        for (const auto &each : words) {
            all += (all.empty() ? "" : ", ") + std::string(each.word);
        }
        return fmt::format("'{}' is not one of {}", text, all);
    };
}

// With permission bits, users who may connect (which needs reading and writing) may follow. With
// capabilities, the owner and, if one is named, a group may follow: files have no capabilities.
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

// The service's permissions in the form of the messaging layer.
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

// The texts of options that are checked together later.
struct Texts {
    std::string perms;
    std::string uid;
    std::string gid;
    std::string threads;
    std::string audio = "auto";
    std::string replaygain = "off";
    std::vector<std::string> devices;
    std::vector<std::string> volume_limits;
    std::string log_level = "trace";
    bool list_devices = false;
    bool check_config = false;
    bool print_config = false;
};

class Parser {
  public:
    explicit Parser(Options &options);

    // Returns an error text, or "". Throws CLI::Success if an option requests a text, such as
    // --help.
    std::string parse(int argc, char **argv);
    int print(const CLI::Success &success) { return app_.exit(success); }

  private:
    void add_players();
    void add_access();
    void add_audio();
    void add_running();
    void add_config();
    std::string finish();

    CLI::App app_{"Hosts named players that play directories of music.", "vantrod"};
    Options &options_;
    Texts texts_;
    std::shared_ptr<config::ConfigFile> file_ = std::make_shared<config::ConfigFile>(app_);
};

Parser::Parser(Options &options) : options_(options) {
    app_.set_version_flag("--version", "vantrod " VANTRO_VERSION)->configurable(false);
    add_players();
    add_access();
    add_audio();
    add_running();
    add_config();
}

void Parser::add_players() {
    app_.add_option("--music", options_.music, "Directory of music; may be given several times")
        ->type_name("DIR")
        ->allow_extra_args(false);
    app_.add_option("--media-root", options_.media_roots,
                    "Directory whose folders, such as mounted volumes, are media sources "
                    "while they exist; may be given several times")
        ->type_name("DIR")
        ->allow_extra_args(false);
    app_.add_option("--player", options_.players,
                    "Name of a player to host; may be given several times (default: main)")
        ->type_name("NAME")
        ->allow_extra_args(false)
        ->check(check_player);
    app_.add_option("--state", options_.state,
                    "Directory of the catalogue and of the players' saved state (default: "
                    "$XDG_STATE_HOME/vantro, else "
                    "~/.local/state/vantro)")
        ->type_name("DIR")
        ->check(check_directory);
    app_.add_flag("--resume", options_.resume,
                  "Players that were playing when the service ended play on; else they are paused");
}

void Parser::add_access() {
    CLI::Option *const perms =
        app_.add_option("--perms", texts_.perms, "Permission bits that clients need (default: 666)")
            ->type_name("OCTAL")
            ->check(check_permissions)
            ->transform(without_octal_sign);
    app_.add_option("--uid", texts_.uid, "User that owns the service (default: of the process)")
        ->type_name("N")
        ->check(check_id);
    app_.add_option("--gid", texts_.gid, "Group of the service (default: of the process)")
        ->type_name("N")
        ->check(check_id);
    app_.add_option("--require", options_.capabilities,
                    "Capabilities that clients must hold, instead of permission bits; then only "
                    "the owner and, if --gid is given, that group may follow the players")
        ->type_name("CAP[,CAP]")
        ->check(check_capabilities)
        ->excludes(perms);
}

void Parser::add_audio() {
    app_.add_option("--audio", texts_.audio,
                    "mpv, clock (silent), or auto: mpv if an output opens, else clock "
                    "(default: auto)")
        ->type_name("HOW")
        ->check(one_of(audio_words));
    app_.add_option(
            "--audio-device", texts_.devices,
            "Output, from --list-audio-devices, of all players or of one; 'null' "
            "discards the sound, 'pcm/FILE' writes a WAV file, 'pipe:PATH' writes to a named "
            "pipe; may be given several times")
        ->type_name("[PLAYER=]NAME")
        ->allow_extra_args(false);
    app_.add_option("--replaygain", texts_.replaygain,
                    "Use of the files' ReplayGain values: track, album or off (default: off)")
        ->type_name("HOW")
        ->check(one_of(replaygain_words));
    app_.add_option("--volume-limit", texts_.volume_limits,
                    "Highest volume, 0 to 100, of all players or of one; a request for more sets "
                    "this volume; may be given several times (default: 100)")
        ->type_name("[PLAYER=]N")
        ->allow_extra_args(false);
    app_.add_flag("--list-audio-devices", texts_.list_devices,
                  "Prints the available outputs, and exits")
        ->configurable(false);
}

void Parser::add_running() {
    app_.add_option(
            "--threads", texts_.threads,
            fmt::format("Number of long requests that run at the same time, 1 to {} (default: {})",
                        threads_max, options_.threads))
        ->type_name("N")
        ->check(check_threads);
    app_.add_option("--log-level", texts_.log_level,
                    "The lowest severity that is logged: error, warning, notice, info, debug "
                    "or trace (default: trace)")
        ->type_name("LEVEL")
        ->check(one_of(log_levels));
}

void Parser::add_config() {
    app_.set_config("--config", config::default_file(),
                    "File with options, in TOML (default: /etc/vantro/vantrod.toml, else "
                    "$XDG_CONFIG_HOME/vantro/vantrod.toml)")
        ->type_name("FILE");
    app_.config_formatter(file_);
    app_.add_flag("--check-config", texts_.check_config,
                  "Checks the options and the file, prints the effective values, and exits")
        ->configurable(false);
    app_.add_flag("--print-config", texts_.print_config,
                  "Prints a file with all options and their values, and exits")
        ->configurable(false);
}

std::string Parser::parse(int argc, char **argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::Success &) {
        throw;
    } catch (const CLI::FileError &) {
        return fmt::format("--config: cannot read '{}'", app_["--config"]->as<std::string>());
    } catch (const CLI::ParseError &error) {
        return file_->placed(error.what());
    }
    const std::string error = finish();
    options_.settings = file_->settings();
    if (texts_.print_config) {
        options_.task = Task::print_config;
        options_.config = file_->to_config(&app_, true, true, "");
    } else if (texts_.check_config) {
        options_.task = Task::check_config;
    } else if (texts_.list_devices) {
        options_.task = Task::list_audio_devices;
    }
    return file_->placed(error);
}

std::string Parser::finish() {
    if (std::string error = check_lists(options_.music, options_.players); !error.empty()) {
        return error;
    }
    if (options_.players.empty()) {
        options_.players.emplace_back("main");
    }
    if (std::string error = read_devices(texts_.devices, options_); !error.empty()) {
        return error;
    }
    if (std::string error = check_outputs(options_); !error.empty()) {
        return "--audio-device: " + error;
    }
    if (std::string error = read_volume_limits(texts_.volume_limits, options_); !error.empty()) {
        return error;
    }
    options_.audio = find_word(audio_words, texts_.audio)->value;
    options_.replaygain = find_word(replaygain_words, texts_.replaygain)->value;
    options_.log_level = find_word(log_levels, texts_.log_level)->value;
    if (!texts_.threads.empty()) {
        read_number(texts_.threads, 10, 1, threads_max, options_.threads);
    }
    options_.readers =
        readers_of(texts_.perms, texts_.uid, texts_.gid, !options_.capabilities.empty());
    options_.permissions = permissions_of(texts_.perms, texts_.uid, texts_.gid);
    return "";
}

} // namespace

bool parse_options(int argc, char **argv, Options &options, int &exit_code) {
    Parser parser(options);
    try {
        const std::string error = parser.parse(argc, argv);
        if (error.empty()) {
            return true;
        }
        fmt::print(stderr, "vantrod: {}\nTry 'vantrod --help'.\n", error);
        exit_code = exit_usage;
    } catch (const CLI::Success &success) {
        exit_code = parser.print(success);
    }
    return false;
}

std::string read_options_again(int argc, char **argv, Options &options) {
    return Parser(options).parse(argc, argv); // cannot be --help, since the first call was not
}

} // namespace vantro::service
