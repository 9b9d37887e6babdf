#include "tools/vantroctl/command_line.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/version.h>

#include "tools/vantroctl/output/colour.h"
#include "tools/vantroctl/output/fields.h"
#include "tools/vantroctl/text/node_ref.h"
#include "tools/vantroctl/text/time_text.h"
#include "tools/vantroctl/verbs/commands.h"
#include "tools/vantroctl/verbs/queue.h"
#include "tools/vantroctl/watch/event_fields.h"

namespace vantro::ctl {
namespace {

constexpr const char *footer = R"(Nodes:
  Listings print each node as SOURCE:ID, one word that can be pasted after browse,
  load and info; "1:" is the top of source 1. An ID alone belongs to the source of
  --source, or to the only source.

Output:
  On a terminal, lists are tables that fit it, and go through $PAGER if they are
  longer than the screen. Elsewhere each entry is a line, its columns separated by
  tabs. Commands print nothing if they succeed, except next, previous, jump and
  play N, which print the new current track unless --quiet is given. A failure is
  one line on standard error. --json prints one object a run; watch prints one for
  each event. docs/vantroctl.md describes everything.

Exit codes:
  0 done   1 failed   2 usage   3 no service or player   4 denied
  5 timed out   6 no such source, node, session or track)";

constexpr double timeout_max_s = 86400;
constexpr size_t player_name_max = 31;

// Levels of a tree if --depth is not given: enough for an overview on one screen.
constexpr int depth_default = 2;
// A service may list a node below itself.
constexpr int depth_max = 64;

constexpr int32_t number_max = std::numeric_limits<int32_t>::max();

// A check for whole numbers. The parser's own check reads a leading zero as octal, and shows users
// the largest number that the type holds.
auto whole_number(int32_t least, int32_t most = number_max) {
    return [=](const std::string &text) {
        int64_t number = 0;
        const char *const text_end = text.data() + text.size();
        const auto [end, error] = std::from_chars(text.data(), text_end, number);
        const bool good = error == std::errc() && end == text_end && number >= least &&
                          number <= most && (text[0] != '0' || text.size() == 1);
        return good                ? std::string()
               : most < number_max ? fmt::format("a whole number from {} to {}", least, most)
                                   : fmt::format("a whole number from {} on", least);
    };
}

} // namespace

CommandLine::CommandLine(Options &options)
    : options_(options), app_("Drives a player of the vantro service.", "vantroctl") {
    app_.set_version_flag("--version", "vantroctl " VANTRO_VERSION);
    add_global_options();
    app_.require_subcommand(1);
    app_.fallthrough(); // Options may stand after the command too.
    add_commands();
    add_watch();
    add_lists();
    add_queue();
    add_playlists();
    app_.footer(footer); // Set after the commands are made, since each would copy it.
}

void CommandLine::parse(int argc, char **argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::RequiredError &) {
        // The parser reports a missing command before it reports a word that is not a command.
        if (!app_.get_subcommands().empty()) {
            throw;
        }
        const std::vector<std::string> words = app_.remaining();
        throw CLI::ValidationError(
            words.empty()
                ? "a command is missing"
                : fmt::format("\"{}\" is not {}", words.front(),
                              words.front().starts_with('-') ? "an option" : "a command"));
    } catch (const CLI::ExtrasError &) {
        // The words are in the parser's own order. Report an option first: the words after it may
        // be its arguments.
        const std::vector<std::string> words = app_.remaining(true);
        const auto option = std::find_if(words.begin(), words.end(), [](const std::string &word) {
            return word.starts_with('-');
        });
        throw CLI::ValidationError(fmt::format("{} does not take \"{}\"", verb(),
                                               option == words.end() ? words.front() : *option));
    }
    std::vector<std::string> &players = options_.players;
    if (players.size() > 1 && verb() != "watch") {
        throw CLI::ValidationError("--player: only watch accepts several players");
    }
    if (options_.live && options_.list.json) {
        throw CLI::ValidationError("--live and --json exclude each other: leave one out");
    }
    read_wait();
    read_format();
    for (auto player = players.begin();
         player != players.end();) { // Each player once, in the order given.
        const bool again = std::find(players.begin(), player, *player) != player;
        player = again ? players.erase(player) : player + 1;
    }
    options_.client.player = players.front();
    options_.list.player = players.front();
}

void CommandLine::read_wait() {
    const std::string &text = options_.wait;
    if (text.empty() || text == "false") {
        return;
    }
    double seconds = 0; // Without a value the tool waits without limit.
    if (text != "true" && (!CLI::detail::lexical_cast(text, seconds) ||
                           !(seconds >= 0 && seconds <= timeout_max_s))) {
        throw CLI::ValidationError(
            fmt::format("--wait: a time limit is 0 to {} seconds", timeout_max_s));
    }
    options_.client.wait_s = seconds;
}

void CommandLine::read_format() {
    const CLI::App &command = *app_.get_subcommands().front();
    const CLI::Option *option = command.get_option_no_throw("--format");
    if (!option || option->empty()) {
        return;
    }
    if (options_.list.json || options_.live) {
        throw CLI::ValidationError(fmt::format("--format and {} exclude each other: leave one out",
                                               options_.live ? "--live" : "--json"));
    }
    try {
        options_.list.format = Template(
            options_.format, verb() == "watch" ? event_fields()
                             : verb() == "status" || verb() == "players" || verb() == "current"
                                 ? status_fields()
                                 : node_fields(verb() == "tracks" || verb() == "queued"));
    } catch (const TemplateError &error) {
        throw CLI::ValidationError(fmt::format("--format: {}", error.what()));
    }
}

void CommandLine::add_global_options() {
    app_.add_option("--player", options_.players,
                    "Name of the player; watch accepts it several times")
        ->type_name("NAME")
        ->allow_extra_args(false) // The word after the name is not a second name.
        ->default_str("main")
        ->check([](const std::string &name) {
            return name.empty() || name.size() > player_name_max
                       ? fmt::format("a name has 1 to {} bytes", player_name_max)
                       : std::string();
        });
    app_.add_option("--timeout", options_.client.timeout_s,
                    "Seconds to wait for each answer of the service; 0: no limit")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->check([](const std::string &text) {
            double seconds = 0;
            return CLI::detail::lexical_cast(text, seconds) && seconds >= 0 &&
                           seconds <= timeout_max_s
                       ? std::string()
                       : fmt::format("a time limit is 0 to {} seconds", timeout_max_s);
        });
    app_.add_flag("--wait", options_.wait,
                  "Wait until a service runs; with =SECONDS, at most that long");
    app_.add_option_function<std::string>(
            "--source",
            [this](const std::string &text) { options_.list.source = parse_source(text); },
            "Number of the source, as sources lists them")
        ->type_name("SOURCE")
        ->check([](const std::string &text) {
            return parse_source(text) ? "" : "a source is a number; vantroctl sources lists them";
        });
    app_.add_flag("--json", options_.list.json,
                  "Print one JSON object, also on failure; watch: one per event");
    app_.add_option_function<std::string>(
            "--color",
            [](const std::string &text) {
                set_colour_mode(parse_colour_mode(text).value_or(ColourMode::automatic));
            },
            "Highlight the current track and errors: auto, always or never")
        ->type_name("WHEN")
        ->check([](const std::string &text) {
            return parse_colour_mode(text) ? "" : "the value is auto, always or never";
        });
    app_.add_flag_callback(
        "--no-pager", [this] { options_.list.pager = false; }, "Print long lists without a pager");
    app_.add_flag("-q,--quiet", options_.quiet, "Print nothing if a command succeeds");
    app_.add_flag("-v,--verbose", options_.verbose, "Show the library's log on standard error");
}

void CommandLine::add_commands() {
    with_format(
        *app_.add_subcommand("status", "Show the state, the track and the modes of the player"));
    with_format(
        *app_.add_subcommand("players", "List the players, with the state and the track of each"));
    app_.add_subcommand("doctor", "Check the service and the player, and say how to mend faults");
    app_.add_subcommand(
        "whoami", "Show this program's user, groups and capabilities as the service sees them");
    with_format(*app_.add_subcommand("current", "Show the current track in one line"));
    with_format(*app_.add_subcommand("queued", "Show the track after the current one in one line"));
    CLI::App &play =
        *app_.add_subcommand("play", "Start or resume playing; or go to a track and play");
    CLI::Option *number = play.add_option("N", options_.track, "Its number, as tracks shows it")
                              ->type_name("")
                              ->check(whole_number(1));
    play.add_option("--search", options_.words, "Go to the first track that contains all the words")
        ->type_name("WORD...")
        ->excludes(number);
    app_.add_subcommand("pause", "Pause");
    app_.add_subcommand("toggle", "Pause if the player plays, else play");
    app_.add_subcommand("stop", "Stop");
    app_.add_subcommand("next", "Go to the next track");
    app_.add_subcommand("previous", "Go to the previous track");
    with_argument("seek", "Go to a position: 83, 1:23, 1:02:03.5, 50%; +10 and -10% from here",
                  "POSITION")
        ->check([](const std::string &text) {
            return parse_seek(text) || parse_percent(text)
                       ? ""
                       : "a position is 83, 1:23, 1:02:03.5, 50%, +10, -1:30 or +5%";
        });
    app_.get_subcommand("seek")->add_flag(
        "--through", options_.through,
        "POSITION is a time to go forward or back by, if necessary into other tracks");
    with_argument("rate", "Set the playback rate; 1 is normal speed", "RATE")
        ->check([](const std::string &text) {
            return parse_rate(text) ? "" : "a rate is a number, such as 1 or 1.5";
        });
    app_.add_subcommand("volume", "Show the volume, or set it: 40, +5, -5, mute, unmute")
        ->add_option("VOLUME", options_.argument, "0 to 100, +N or -N, mute or unmute")
        ->type_name("")
        ->check([](const std::string &text) {
            return parse_volume(text) ? "" : "a volume is 0 to 100, +5, -5, mute or unmute";
        });
    with_argument("shuffle", "Play in random order: on, off, toggle; or show the mode",
                  "on|off|toggle")
        ->required(false)
        ->check([](const std::string &text) {
            return text == "on" || text == "off" || text == "toggle"
                       ? ""
                       : "shuffle takes on, off or toggle";
        });
    with_argument("repeat",
                  "Repeat nothing, everything or one track: off, all, one; or show the mode",
                  "off|all|one|toggle")
        ->required(false)
        ->check([](const std::string &text) {
            return text == "toggle" || parse_repeat(text) ? ""
                                                          : "repeat takes off, all, one or toggle";
        });
}

void CommandLine::add_watch() {
    with_format(
        *app_.add_subcommand("watch", "Print the player's state, then a line for each event"))
        .add_flag("--live", options_.live, "Draw one screen instead; q ends it");
}

void CommandLine::add_lists() {
    const auto add_node = [this](CLI::App &command) {
        return command.add_option("NODE", options_.node, "As listings print it")->type_name("");
    };
    app_.add_subcommand("sources", "List the media sources");
    add_node(*app_.add_subcommand(
        "rescan", "Make the service scan its music again, or the folders of a node's songs"));

    CLI::App &browse =
        with_range(*app_.add_subcommand("browse", "List the entries of a node, or the top"));
    add_node(browse);
    CLI::Option *tree = browse.add_flag_callback(
        "--tree", [this] { options_.list.depth = std::max(options_.list.depth, depth_default); },
        "Show the levels below too, as a tree");
    browse
        .add_option("--depth", options_.list.depth,
                    fmt::format("Levels of the tree, {} unless given", depth_default))
        ->type_name("N")
        ->check(whole_number(1, depth_max))
        ->needs(tree);

    CLI::App &search =
        with_range(*app_.add_subcommand("search", "Find artists, albums and songs by words"));
    search.add_option("TERM", options_.words, "Words, or beginnings of words; all must be found")
        ->type_name("")
        ->required();
    for (const char *filter : {VANTRO_FILTER_ARTIST, VANTRO_FILTER_ALBUM, VANTRO_FILTER_TITLE,
                               VANTRO_FILTER_GENRE, VANTRO_FILTER_COMPOSER}) {
        search.add_flag_callback(
            fmt::format("--{}", filter), [this, filter] { set_filter(filter); },
            fmt::format("Search by {} only", filter));
    }

    with_range(*app_.add_subcommand("tracks", "List the player's tracks"));

    app_.add_subcommand("jump", "Go to a track")
        ->add_option("N", options_.number, "Its number, as tracks shows it")
        ->type_name("")
        ->required()
        ->check(whole_number(1));

    CLI::App &info = *app_.add_subcommand("info", "Show the metadata of a node");
    add_node(info)->required();
    info.add_option("KEY", options_.words, "The keys to show. Default: all that have a value")
        ->type_name("");
}

void CommandLine::add_queue() {
    const auto add_nodes = [this](CLI::App &command) {
        command
            .add_option(
                "NODE", options_.nodes,
                "As listings print it, or - for the nodes on standard input; may be repeated")
            ->type_name("")
            ->required();
        command.add_flag("--search", options_.search,
                         "Search for the arguments as words, and take the songs found");
    };
    CLI::App &load =
        *app_.add_subcommand("load", "Replace the player's tracks by the songs of nodes");
    add_nodes(load);
    load.add_flag("--play", options_.play, "Play at once");
    load.add_option("--index", options_.number, "Number of the song to begin with, from 1")
        ->type_name("N")
        ->check(whole_number(1));

    add_nodes(*app_.add_subcommand("add", "Add the songs of nodes after all tracks"));
    add_nodes(*app_.add_subcommand("insert", "Add the songs of nodes after the current track"));

    app_.add_subcommand("remove", "Remove tracks: 3, or 3-7, or several of these")
        ->add_option("N[-M]", options_.words, "Their numbers, as tracks shows them")
        ->type_name("")
        ->required()
        ->check([](const std::string &text) {
            return parse_track_range(text) ? "" : "write tracks as 3 or 3-7";
        });

    CLI::App &move = *app_.add_subcommand("move", "Move a track to another place");
    move.add_option("N", options_.number, "Its number, as tracks shows it")
        ->type_name("")
        ->required()
        ->check(whole_number(1));
    move.add_option("M", options_.to, "Its new number")
        ->type_name("")
        ->required()
        ->check(whole_number(1));

    app_.add_subcommand("mix",
                        "Put all tracks except the current one into a random order after it");
    app_.add_subcommand("crop", "Remove all tracks except the current one");
    app_.add_subcommand("clear", "Remove all tracks");
}

void CommandLine::add_playlists() {
    with_range(*app_.add_subcommand("playlists", "List the saved playlists"));
    with_argument("save", "Save the player's tracks as a playlist", "NAME");
    app_.get_subcommand("save")->add_flag("--replace", options_.replace,
                                          "Replace an existing playlist of that name");
    with_argument("delete-playlist", "Delete a saved playlist", "NAME");
}

void CommandLine::set_filter(const char *filter) {
    if (!options_.filter.empty() && options_.filter != filter) {
        throw CLI::ValidationError(fmt::format("--{} and --{} exclude each other: leave one out",
                                               options_.filter, filter));
    }
    options_.filter = filter;
}

CLI::App &CommandLine::with_range(CLI::App &command) {
    command.add_option("--limit", options_.list.limit, "Show at most N entries")
        ->type_name("N")
        ->check(whole_number(1));
    command.add_option("--offset", options_.list.offset, "Skip the first N entries")
        ->type_name("N")
        ->check(whole_number(0));
    return with_format(command);
}

CLI::App &CommandLine::with_format(CLI::App &command) {
    command
        .add_option("--format", options_.format,
                    "Show each as \"{{artist}} - {{title}}\" or another template says")
        ->type_name("TEMPLATE");
    return command;
}

CLI::Option *CommandLine::with_argument(const char *verb, const char *what, const char *argument) {
    return app_.add_subcommand(verb, what)
        ->add_option(argument, options_.argument, what)
        ->type_name("")
        ->required();
}

} // namespace vantro::ctl
