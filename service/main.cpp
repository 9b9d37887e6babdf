// vantrod: hosts named players, and answers their clients.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <pthread.h>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <vantro/platform/log.h>

#include "common/descriptor_limit.h"
#include "service/catalogue/state_directory.h"
#include "service/catalogue/store.h"
#include "service/error.h"
#include "service/memory_return.h"
#include "service/music_check.h"
#include "service/options.h"
#include "service/playback/players.h"
#include "service/playlists/playlist_catalogue.h"
#include "service/reload.h"
#include "service/requests/answers.h"
#include "service/requests/handlers.h"
#include "service/requests/identity.h"
#include "service/requests/progress.h"
#include "service/scan_report.h"
#include "service/server.h"
#include "service/service_manager.h"
#include "service/sound/mpv_core.h"
#include "service/sound/mpv_sound.h"
#include "service/state/keeper.h"
#include "service/watchdog.h"

namespace {

using namespace vantro::service;

// Names this program in the system's log.
constexpr uint32_t log_code = 0x06D02710;

// `place` is the place of the option with the error, as place_of() returns it, or "".
int fail(const Error &error, const std::string &place = "") {
    fmt::print(stderr, "vantrod: {}{}\n", place, last_words(error));
    return EXIT_FAILURE;
}

void log_line(int severity, const std::string &line) {
    system_log(log_code, severity, "%s", line.c_str());
}

std::chrono::nanoseconds monotonic_now() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

// Prints one line on standard output. A failure to print it is ignored: the players go on.
void say(const std::string &line) {
    std::fputs(("vantrod: " + line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

// Waits for SIGTERM or SIGINT, then stops the server; at SIGHUP it reads the configuration again.
// The signals are blocked in every thread, so that only this thread receives them.
class Ending {
  public:
    Ending(Server &server, Reload &reload, Watchdog &watchdog) {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGTERM);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGHUP);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        thread_ = std::thread([this, &server, &reload, &watchdog] {
            int signal = 0;
            while (sigwait(&signals_, &signal) == 0 && signal == SIGHUP) {
                reload.run();
            }
            asked_ = true;
            service_manager::tell_stopping();
            watchdog.end();
            server.stop();
        });
    }
    ~Ending() {
        if (!asked_) {
            kill(getpid(), SIGTERM);
        }
        thread_.join();
    }
    Ending(const Ending &) = delete;
    Ending &operator=(const Ending &) = delete;

  private:
    std::atomic<bool> asked_ = false;
    sigset_t signals_;
    std::thread thread_;
};

// The catalogue's options, without its callbacks. The state directory is empty if none is known.
catalogue::StoreOptions store_options(const Options &options) {
    catalogue::StoreOptions wanted;
    wanted.state = options.state;
    if (wanted.state.empty()) {
        wanted.state = catalogue::default_state_directory();
    }
    wanted.music.assign(options.music.begin(), options.music.end());
    wanted.roots.assign(options.media_roots.begin(), options.media_roots.end());
    wanted.artwork_readers = {options.readers.uid, options.readers.gid, options.readers.mode};
    wanted.log = log_line;
    return wanted;
}

// Makes the sound of each player; null if the players follow the clock.
playback::SoundMaker sound_maker(const Options &options) {
    if (options.audio == Audio::clock) {
        return nullptr;
    }
    return [&options](sound::Listener &listener, const std::string &player) {
        sound::MpvOptions wanted;
        wanted.device = device_of(options, player);
        wanted.replaygain = options.replaygain;
        return std::make_unique<sound::MpvSound>(listener, "vantrod: " + player, std::move(wanted),
                                                 options.audio == Audio::automatic);
    };
}

int list_audio_devices() {
    const auto devices = sound::mpv_devices();
    if (!devices) {
        return fail(devices.error(), "--list-audio-devices: ");
    }
    for (const auto &[name, description] : *devices) {
        fmt::print("{}\t{}\n", name, description);
    }
    return EXIT_SUCCESS;
}

// Reports, on standard output and to the service manager, that clients are served.
void tell_ready(int64_t tracks, const Options &options) {
    say(fmt::format("ready ({} tracks, players: {})", tracks, fmt::join(options.players, ", ")));
    log_line(LOG_SEVERITY_INFO, fmt::format("ready, {} tracks", tracks));
    service_manager::tell_status(fmt::format("{} tracks so far, scanning", tracks));
    service_manager::tell_ready();
}

void tell_scanned(int64_t tracks) {
    say(fmt::format("scanned ({} tracks)", tracks));
    service_manager::tell_status(fmt::format("{} tracks", tracks));
    log_line(LOG_SEVERITY_INFO, fmt::format("scanned, {} tracks", tracks));
}

Error no_state_directory() {
    return {Error::Origin::state, ENOENT,
            "none is given, and neither XDG_STATE_HOME nor HOME is set"};
}

// Ends the saving of players before they are destroyed.
struct Keeping {
    state::Keeper &keeper;
    ~Keeping() { keeper.finish(); }
};

// Prints the effective settings, one option a line.
int print_settings(const Options &options) {
    if (const std::optional<WrongMusic> wrong = check_music(options)) {
        return fail(wrong->error, wrong->place);
    }
    for (const config::Setting &each : options.settings) {
        fmt::print("{}{}{}  # {}\n", each.value.empty() ? "#" : "", each.key,
                   each.value.empty() ? "" : " = " + each.value, each.origin);
    }
    return EXIT_SUCCESS;
}

requests::Answers::Identify identifier(const Options &options) {
    return [&options](const requests::Client &client, VantroIdentity &identity) {
        return requests::identify(client, options.capabilities, identity);
    };
}

// Borrows all arguments.
Reload::Actions reload_actions(const Options &running, catalogue::Store &store,
                               catalogue::Catalogue &catalogue, playback::Players &players,
                               state::Keeper &keeper) {
    Reload::Actions actions;
    actions.rescan = [&catalogue] { catalogue.rescan(); };
    actions.set_replaygain = [&players](const std::string &mode) {
        for (playback::Player &player : players) {
            player.set_replaygain(mode);
        }
    };
    actions.set_volume_limits = [&players](const Options &wanted) {
        for (playback::Player &player : players) {
            player.set_volume_limit(volume_limit_of(wanted, player.name));
            player.publish_changes();
        }
    };
    actions.set_music = [&store](const Options &wanted) {
        store.set_music({wanted.music.begin(), wanted.music.end()},
                        {wanted.media_roots.begin(), wanted.media_roots.end()});
    };
    actions.add_player = [&](const std::string &name, Options wanted) {
        wanted.audio = running.audio;
        return players.add(name, sound_maker(wanted), [&](size_t at, playback::Player &player) {
            player.set_volume_limit(volume_limit_of(wanted, name));
            keeper.restore(at, player, running.resume);
        });
    };
    return actions;
}

// The parts that exist before the catalogue.
struct Process {
    const Options &options;
    Reload &reload;
    Server &server;
    Watchdog &watchdog;
};

// The receivers of the scan's reports; set before the scan starts.
struct Told {
    playback::Players *players = nullptr;
    requests::Answers *answers = nullptr;
};

// Hosts the players until the service ends. Calls `started` when the service answers and scans.
int host(const Process &process, catalogue::Store &store, const std::filesystem::path &state,
         Told &told, const std::function<void()> &started) {
    const Options &options = process.options;
    std::optional<state::Keeper> keeper; // before the players, whose threads call it
    playlists::PlaylistCatalogue catalogue(
        store, state / "playlists", log_line,
        [&told](int32_t source) { told.players->source_changed(source); });
    playback::Players players(catalogue, options.players, monotonic_now, sound_maker(options));
    for (playback::Player &player : players) {
        player.set_volume_limit(volume_limit_of(options, player.name));
    }
    keeper.emplace(players, state / "players", log_line);
    const Keeping keeping{*keeper};
    keeper->restore(options.resume);
    if (const std::optional<Error> error =
            players.publish(options.readers, log_line, [&keeper] { keeper->look(); })) {
        return fail(*error);
    }
    keeper->start();
    told.players = &players;
    MemoryReturn memory;
    memory.start();
    requests::Answers answers(catalogue, players);
    told.answers = &answers;
    answers.set_identify(identifier(options));
    requests::Turns turns(options.threads);
    requests::UserLimits limits(
        [](const std::string &line) { log_line(LOG_SEVERITY_WARNING, line); });
    limits.limit_descriptors();
    answers.set_sessions_refused(
        [&limits](const requests::Client &client) { limits.sessions_refused(client); });
    requests::Handling handling{answers, turns, limits, memory};
    set_handling(&handling);
    requests::Progress progress;
    const std::optional<Error> error = process.server.run(options.threads, [&] {
        tell_ready(store.song_count(), options);
        store.start_scanning();
        process.reload.set_actions(reload_actions(options, store, catalogue, players, *keeper));
        for (playback::Player &player : players) {
            player.prepare_sound(); // not earlier, since it would delay the start
        }
        started();
        process.watchdog.start(
            {[&process](std::chrono::milliseconds time) { return process.server.answers(time); },
             [&progress] { return progress.gets_on(); },
             [&players] { return players.clock_goes(); }});
    });
    process.watchdog.stop();
    process.reload.set_actions({});
    requests::set_handling(nullptr);
    store.stop_scanning(); // while the receivers of its reports still exist
    return error ? fail(*error) : EXIT_SUCCESS;
}

int serve(const Options &options, Reload &reload) {
    if (const std::optional<WrongMusic> wrong = check_music(options)) {
        return fail(wrong->error, wrong->place);
    }
    Server server;
    // The name is taken first, so that a second service fails because of the name, not because of
    // the catalogue.
    if (const std::optional<Error> error = server.attach(options)) {
        return fail(*error);
    }
    Watchdog watchdog;
    // Must exist before any thread starts, since a thread would receive the signals.
    const Ending ending(server, reload, watchdog);
    std::unique_ptr<catalogue::Store> store;
    const auto scanned = [&store] { tell_scanned(store->song_count()); };
    std::optional<ScanReport> report; // once the sources are known
    catalogue::StoreOptions wanted = store_options(options);
    if (wanted.state.empty()) {
        return fail(no_state_directory(), place_of(options, "state"));
    }
    const std::filesystem::path state = wanted.state;
    Told told;
    wanted.changed = [&told](int32_t source) { told.players->source_changed(source); };
    wanted.prepared = [&told](int32_t source) { told.answers->prepare_songs(source); };
    wanted.progress = [&report](const catalogue::ScanProgress &progress) {
        report->note(progress);
    };
    auto opened = open_store(std::move(wanted));
    if (!opened) {
        return fail(opened.error(), place_of(options, "state"));
    }
    store = std::move(*opened);
    std::set<int32_t> first;
    for (const catalogue::Source &source : store->sources()) {
        first.insert(source.id);
    }
    const bool nothing = first.empty();
    report.emplace(std::move(first), scanned);
    return host({options, reload, server, watchdog}, *store, state, told, [&] {
        if (nothing) {
            scanned();
        }
    });
}

} // namespace

int main(int argc, char **argv) {
    try {
        Options options;
        int exit_code = EXIT_SUCCESS;
        if (!parse_options(argc, argv, options, exit_code)) {
            return exit_code;
        }
        if (options.task == Task::print_config) {
            fmt::print("{}", options.config);
            return EXIT_SUCCESS;
        }
        if (options.task == Task::check_config) {
            return print_settings(options);
        }
        if (options.task == Task::list_audio_devices) {
            return list_audio_devices();
        }
        system_log_set_level(options.log_level);
        // The process that reads standard output may have ended.
        std::signal(SIGPIPE, SIG_IGN);
        vantro::raise_descriptor_limit();
        Reload reload(argc, argv, options, log_line);
        return serve(options, reload);
    } catch (const std::exception &thrown) {
        return fail(error_of(thrown));
    }
}
