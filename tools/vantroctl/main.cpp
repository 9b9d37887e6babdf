// vantroctl: tells a player what to do, and shows what it is doing and what there is to play.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "tools/vantroctl/command_line.h"
#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/output/colour.h"
#include "tools/vantroctl/output/fields.h"
#include "tools/vantroctl/output/json_output.h"
#include "tools/vantroctl/output/standard_output.h"
#include "tools/vantroctl/output/status_view.h"
#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/service/library_log.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/verbs/commands.h"
#include "tools/vantroctl/verbs/doctor.h"
#include "tools/vantroctl/verbs/listings.h"
#include "tools/vantroctl/verbs/players.h"
#include "tools/vantroctl/verbs/playlists.h"
#include "tools/vantroctl/verbs/queue.h"
#include "tools/vantroctl/watch/watch.h"

namespace {

using namespace vantro::ctl;

Outcome run(const std::string &verb, const Options &options) {
    // The log would spoil a screen that is being drawn.
    listen_to_library(options.verbose && !(options.live && isatty(STDERR_FILENO)));
    if (verb == "watch") {
        run_watch({options.players, options.client, options.list.json, options.live,
                   options.list.format});
        return Outcome::done;
    }
    if (verb == "doctor") {
        return run_doctor(options.client, options.list.json);
    }
    if (verb == "whoami") {
        run_whoami(options.client, options.list.json);
        return Outcome::done;
    }
    if (verb == "players") {
        run_players(options.client, options.list);
        return Outcome::done;
    }
    Client client(options.client);
    const ListOptions &list = options.list;
    if (verb == "status") {
        const PlayerStatus status = client.status();
        print(list.format ? list.format->line(
                                [&](std::string_view name) { return status_field(status, name); })
              : list.json            ? json_status(status)
              : output_is_terminal() ? render_screen(status, output_columns())
                                     : render_lines(status));
    } else if (verb == "sources") {
        run_sources(client, list);
    } else if (verb == "browse") {
        run_browse(client, list, options.node);
    } else if (verb == "search") {
        run_search(client, list, options.filter, fmt::format("{}", fmt::join(options.words, " ")));
    } else if (verb == "playlists") {
        run_playlists(client, list);
    } else if (verb == "tracks") {
        run_tracks(client, list);
    } else if (verb == "info") {
        run_info(client, list, *options.node, options.words);
    } else {
        CommandResult done =
            verb == "seek"      ? run_seek(client, options.argument)
            : verb == "rate"    ? run_rate(client, options.argument)
            : verb == "shuffle" ? run_shuffle(client, options.argument)
            : verb == "repeat"  ? run_repeat(client, options.argument)
            : verb == "volume"  ? run_volume(client, options.argument)
            : verb == "jump"    ? run_jump(client, options.number)
            : verb == "load" ? run_load(client, list, options.nodes, options.number, options.play)
            : verb == "add" || verb == "insert" ? run_add(client, list, verb, options.nodes)
            : verb == "remove"                  ? run_remove(client, options.words)
            : verb == "move"                    ? run_move(client, options.number, options.to)
            : verb == "clear"                   ? run_clear(client)
            : verb == "save"            ? run_save(client, options.argument, options.replace)
            : verb == "delete-playlist" ? run_delete_playlist(client, options.argument)
                                        : run_plain(client, verb);
        if (verb == "next" || verb == "previous" || verb == "jump") {
            tell_track(client, done);
        }
        if (list.json) {
            print(json_done(list.player, done));
        } else if (done.track && !options.quiet) {
            print(clean_text(track_words(*done.track, done.tracks)) + '\n');
        } else if (verb == "volume" && options.argument.empty()) {
            print(volume_text({*done.volume, *done.muted}) + '\n');
        }
    }
    return Outcome::done;
}

// Looked for here too, because a command line that cannot be parsed is also reported in colour.
ColourMode colour_mode_in(int argc, char **argv) {
    constexpr std::string_view option = "--color";
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == option && i + 1 < argc) {
            return parse_colour_mode(argv[i + 1]).value_or(ColourMode::automatic);
        }
        if (word.starts_with("--color=")) {
            return parse_colour_mode(word.substr(option.size() + 1))
                .value_or(ColourMode::automatic);
        }
    }
    return ColourMode::automatic;
}

int report(const Failure &failure, bool json) {
    complain(failure.text);
    if (json) {
        write_output(json_failure(
            failure)); // The run has failed already, whether or not this can be written.
    }
    return static_cast<int>(failure.outcome);
}

Outcome parse_and_run(int argc, char **argv, Options &options) {
    CommandLine line(options);
    try {
        line.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        print(line.help());
        return Outcome::done;
    } catch (const CLI::CallForVersion &version) {
        print(std::string(version.what()) + '\n');
        return Outcome::done;
    } catch (const CLI::ParseError &error) {
        throw Failure(Outcome::usage, fmt::format("{}; see vantroctl --help", error.what()));
    }
    return run(line.verb(), options);
}

} // namespace

int main(int argc, char **argv) {
    prepare_output();
    // Looked for here too, because a command line that cannot be parsed is also reported as JSON.
    const bool json = std::any_of(
        argv, argv + argc, [](const char *word) { return std::string_view(word) == "--json"; });
    set_colour_mode(colour_mode_in(argc, argv));
    Options options;
    try {
        return static_cast<int>(parse_and_run(argc, argv, options));
    } catch (const Failure &failure) {
        return report(failure, json);
    } catch (const std::exception &error) {
        return report(Failure(Outcome::failed, error.what()), json);
    }
}
