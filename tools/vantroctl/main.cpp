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

void show_status(Client &client, const std::string &verb, const ListOptions &list) {
    static const Template current("{{group(artist, ' - ')}}{{title}}", status_fields());
    const PlayerStatus status = client.status();
    const auto field = [&](std::string_view name) { return status_field(status, name); };
    if (list.json) {
        print(verb == "status" ? json_status(status) : json_current(status));
    } else if (list.format || verb == "current") {
        print(list.format.value_or(current).line(field));
    } else {
        print(output_is_terminal() ? render_screen(status, output_columns())
                                   : render_lines(status));
    }
}

// @return whether the verb is one that shows something, and changes nothing.
bool show(Client &client, const std::string &verb, const Options &options) {
    const ListOptions &list = options.list;
    if (verb == "status" || verb == "current") {
        show_status(client, verb, list);
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
    } else if (verb == "queued") {
        run_queued(client, list);
    } else if (verb == "info") {
        run_info(client, list, *options.node, options.words);
    } else {
        return false;
    }
    return true;
}

CommandResult carry_out(Client &client, const std::string &verb, const Options &options) {
    const ListOptions &list = options.list;
    const QueueNodes wanted{options.nodes, options.search};
    return verb == "seek"      ? run_seek(client, options.argument)
           : verb == "rate"    ? run_rate(client, options.argument)
           : verb == "shuffle" ? run_shuffle(client, options.argument)
           : verb == "repeat"  ? run_repeat(client, options.argument)
           : verb == "volume"  ? run_volume(client, options.argument)
           : verb == "jump"    ? run_jump(client, options.number)
           : verb == "load"    ? run_load(client, list, wanted, options.number, options.play)
           : verb == "add" || verb == "insert" ? run_add(client, list, verb, wanted)
           : verb == "remove"                  ? run_remove(client, options.words)
           : verb == "move"                    ? run_move(client, options.number, options.to)
           : verb == "crop"                    ? run_crop(client)
           : verb == "clear"                   ? run_clear(client)
           : verb == "play" && options.track   ? run_play(client, *options.track)
           : verb == "save"                    ? run_save(client, options.argument, options.replace)
           : verb == "delete-playlist"         ? run_delete_playlist(client, options.argument)
                                               : run_plain(client, verb);
}

// The mode, if the command only asks for it.
std::string mode_text(const CommandResult &done) {
    return done.volume    ? volume_text({*done.volume, *done.muted})
           : done.shuffle ? shuffle_name(*done.shuffle)
           : done.repeat  ? repeat_name(*done.repeat)
                          : "";
}

Outcome run(const std::string &verb, const Options &options) {
    // The log would overwrite a screen that is being drawn.
    listen_to_library(options.verbose && !(options.live && isatty(STDERR_FILENO)));
    const ListOptions &list = options.list;
    if (verb == "watch") {
        run_watch({options.players, options.client, list.json, options.live, list.format});
        return Outcome::done;
    }
    if (verb == "doctor") {
        return run_doctor(options.client, list.json);
    }
    if (verb == "whoami") {
        run_whoami(options.client, list.json);
        return Outcome::done;
    }
    if (verb == "players") {
        run_players(options.client, list);
        return Outcome::done;
    }
    Client client(options.client);
    if (show(client, verb, options)) {
        return Outcome::done;
    }
    CommandResult done = carry_out(client, verb, options);
    if (verb == "next" || verb == "previous" || done.index) {
        tell_track(client, done);
    }
    if (list.json) {
        print(json_done(list.player, done));
    } else if (done.track && !options.quiet) {
        print(clean_text(track_words(*done.track, done.tracks)) + '\n');
    } else if (done.found && !options.quiet) {
        print(fmt::format("{} song{}\n", *done.found, *done.found == 1 ? "" : "s"));
    } else if (options.argument.empty() && !mode_text(done).empty()) {
        print(mode_text(done) + '\n');
    }
    return Outcome::done;
}

// Also looked for here, because an error of the command line is reported in colour too.
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
        // The run has failed, whether or not this can be written.
        write_output(json_failure(failure));
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
    // Also looked for here, because an error of the command line is reported as JSON too.
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
