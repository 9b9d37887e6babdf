// vantroctl: controls a player, shows its state, and lists the music of the service.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>
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
#include "tools/vantroctl/verbs/track_choice.h"
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

// @return whether the verb only shows something; such a verb changes nothing.
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

// The usual forms of a verb that changes something.
template <CommandResult (*run)(Client &)>
CommandResult alone(Client &client, const Options &) {
    return run(client);
}
template <CommandResult (*run)(Client &, const std::string &)>
CommandResult with_argument(Client &client, const Options &options) {
    return run(client, options.argument);
}

// The verbs that change something, except the playback commands without arguments.
constexpr struct {
    std::string_view verb;
    CommandResult (*carry_out)(Client &client, const Options &options);
} changing_verbs[] = {
    {"play",
     [](Client &client, const Options &options) {
         return options.track            ? run_play(client, *options.track)
                : !options.words.empty() ? run_play_found(client, options.words)
                                         : run_plain(client, "play");
     }},
    {"seek",
     [](Client &client, const Options &options) {
         return options.through ? run_seek_through(client, options.argument)
                                : run_seek(client, options.argument);
     }},
    {"jump",
     [](Client &client, const Options &options) { return run_jump(client, options.number); }},
    {"rate", with_argument<run_rate>},
    {"shuffle", with_argument<run_shuffle>},
    {"repeat", with_argument<run_repeat>},
    {"volume", with_argument<run_volume>},
    {"load",
     [](Client &client, const Options &options) {
         return run_load(client, options.list, {options.nodes, options.search}, options.number,
                         options.play);
     }},
    {"add",
     [](Client &client, const Options &options) {
         return run_add(client, options.list, "add", {options.nodes, options.search});
     }},
    {"insert",
     [](Client &client, const Options &options) {
         return run_add(client, options.list, "insert", {options.nodes, options.search});
     }},
    {"remove",
     [](Client &client, const Options &options) { return run_remove(client, options.words); }},
    {"move", [](Client &client,
                const Options &options) { return run_move(client, options.number, options.to); }},
    {"mix", alone<run_mix>},
    {"crop", alone<run_crop>},
    {"clear", alone<run_clear>},
    {"save",
     [](Client &client, const Options &options) {
         return run_save(client, options.argument, options.replace);
     }},
    {"delete-playlist", with_argument<run_delete_playlist>},
    {"rescan",
     [](Client &client, const Options &options) {
         return run_rescan(client, options.list, options.node);
     }},
};

CommandResult carry_out(Client &client, const std::string &verb, const Options &options) {
    const auto *const found = std::find_if(std::begin(changing_verbs), std::end(changing_verbs),
                                           [&verb](const auto &each) { return each.verb == verb; });
    return found != std::end(changing_verbs) ? found->carry_out(client, options)
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

// The option is also searched for here, because errors of the command line are in colour too.
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
    // The option is also searched for here, because errors of the command line are JSON too.
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
