/** vantroctl: tells a player what to do, and shows what it is doing. */
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "tools/vantroctl/client.h"
#include "tools/vantroctl/commands.h"
#include "tools/vantroctl/display_text.h"
#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/json_text.h"
#include "tools/vantroctl/output.h"
#include "tools/vantroctl/time_text.h"

namespace {

using namespace vantro;

constexpr const char *footer = R"(Output:
  status on a terminal is one screen; elsewhere it is "key: value" lines, always
  player, state, track, tracks, title, artist, album, position, duration, repeat,
  shuffle, rate in this order, with nothing behind the colon of what is not known.
  Other commands print nothing when they succeed. A failure is one line on
  standard error.
  --json prints one object a run instead, on standard output:
    status    {"ok":true,"player","state","rate","repeat","shuffle","position_ms",
              "track":{"index","title","artist","album","genre","year","disc",
              "number","duration_ms","node_id","node_name","source_id"} or null,
              "session":{"id","type","length"} or null}
    commands  {"ok":true,"player","command"} and, where it was set,
              "position_ms", "rate", "shuffle" or "repeat"
    failures  {"ok":false,"error","code"}
  Positions and durations are milliseconds there, and track indices count from 0.

Exit codes:
  0 done   1 failed   2 usage   3 no service or player   4 denied
  5 timed out   6 not found)";

constexpr double timeout_max_s = 86400;
constexpr size_t player_name_max = 31;

struct Options {
    ClientOptions client;
    bool json = false;
    std::string argument;
};

/** The command line. Judges every argument before anything is sent. */
class CommandLine {
  public:
    explicit CommandLine(Options &options)
        : options_(options), app_("Drives a player of the vantro service.", "vantroctl") {
        app_.set_version_flag("--version", "vantroctl " VANTRO_VERSION);
        app_.add_option("--player", options_.client.player, "Name of the player")
            ->type_name("NAME")
            ->capture_default_str()
            ->check([](const std::string &name) {
                return name.empty() || name.size() > player_name_max
                           ? fmt::format("a name has 1 to {} bytes", player_name_max)
                           : std::string();
            });
        app_.add_option("--timeout", options_.client.timeout_s,
                        "Seconds to wait for the service in all; 0 waits for ever")
            ->type_name("SECONDS")
            ->capture_default_str()
            ->check([](const std::string &text) {
                double seconds = 0;
                return CLI::detail::lexical_cast(text, seconds) && seconds >= 0 &&
                               seconds <= timeout_max_s
                           ? std::string()
                           : fmt::format("a time limit is 0 to {} seconds", timeout_max_s);
            });
        app_.add_flag("--json", options_.json, "Print one JSON object, whatever happens");
        app_.add_flag("-v,--verbose", options_.client.verbose,
                      "Show the library's log on standard error");
        app_.require_subcommand(1);
        app_.fallthrough(); // Options may stand behind the command as well.
        add_commands();
        app_.footer(footer); // Behind the commands, which would take it over.
    }

    /** @throws CLI::ParseError, also for --help and --version. */
    void parse(int argc, char **argv) { app_.parse(argc, argv); }

    std::string verb() const { return app_.get_subcommands().front()->get_name(); }
    std::string help() const { return app_.help(); }

  private:
    void add_commands() {
        app_.add_subcommand("status", "Show what the player is doing");
        app_.add_subcommand("play", "Play, or play on");
        app_.add_subcommand("pause", "Hold the position");
        app_.add_subcommand("stop", "Stop");
        app_.add_subcommand("next", "Go to the next track");
        app_.add_subcommand("previous", "Go to the previous track");
        with_argument("seek", "Go to a position: 83, 1:23, 1:02:03.5; +10 and -10 from here",
                      "POSITION")
            ->check([](const std::string &text) {
                return parse_seek(text) ? "" : "a position is 83, 1:23, 1:02:03.5, +10 or -1:30";
            });
        with_argument("rate", "Set the playback rate; 1 is normal speed", "RATE")
            ->check([](const std::string &text) {
                return parse_rate(text) ? "" : "a rate is a number, such as 1 or 1.5";
            });
        with_argument("shuffle", "Play in random order or not: on, off, toggle", "on|off|toggle")
            ->check([](const std::string &text) {
                return text == "on" || text == "off" || text == "toggle"
                           ? ""
                           : "shuffle takes on, off or toggle";
            });
        with_argument("repeat", "Repeat nothing, everything or one track: off, all, one",
                      "off|all|one")
            ->check([](const std::string &text) {
                return parse_repeat(text) ? "" : "repeat takes off, all or one";
            });
    }

    CLI::Option *with_argument(const char *verb, const char *what, const char *argument) {
        return app_.add_subcommand(verb, what)
            ->add_option(argument, options_.argument, what)
            ->type_name("")
            ->required();
    }

    Options &options_;
    CLI::App app_;
};

std::string run(const std::string &verb, const Options &options) {
    Client client(options.client);
    if (verb == "status") {
        const PlayerStatus status = client.status();
        return options.json           ? json_status(status)
               : output_is_terminal() ? render_screen(status, output_columns())
                                      : render_lines(status);
    }
    const Done done = verb == "seek"      ? run_seek(client, options.argument)
                      : verb == "rate"    ? run_rate(client, options.argument)
                      : verb == "shuffle" ? run_shuffle(client, options.argument)
                      : verb == "repeat"  ? run_repeat(client, options.argument)
                                          : run_plain(client, verb);
    return options.json ? json_done(options.client.player, done) : std::string();
}

int report(const Failure &failure, bool json) {
    const std::string line = clean_text(failure.text);
    std::fprintf(stderr, "vantroctl: %s\n", line.c_str());
    if (json) {
        write_output(json_failure(failure)); // A failure to write adds nothing to a failed run.
    }
    return static_cast<int>(failure.outcome);
}

void print(std::string_view text) {
    if (!write_output(text)) {
        throw Failure(Outcome::failed,
                      fmt::format("cannot write to standard output: {}", std::strerror(errno)));
    }
}

void parse_and_run(int argc, char **argv, Options &options) {
    CommandLine line(options);
    try {
        line.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        print(line.help());
        return;
    } catch (const CLI::CallForVersion &version) {
        print(std::string(version.what()) + '\n');
        return;
    } catch (const CLI::ParseError &error) {
        throw Failure(Outcome::usage, fmt::format("{}; see vantroctl --help", error.what()));
    }
    print(run(line.verb(), options));
}

} // namespace

int main(int argc, char **argv) {
    prepare_output();
    use_display_locale();
    // Asked for here as well, because a command line that cannot be read is reported as JSON too.
    const bool json = std::any_of(
        argv, argv + argc, [](const char *word) { return std::string_view(word) == "--json"; });
    Options options;
    try {
        parse_and_run(argc, argv, options);
        return static_cast<int>(Outcome::done);
    } catch (const Failure &failure) {
        return report(failure, json);
    } catch (const std::exception &error) {
        return report(Failure(Outcome::failed, error.what()), json);
    }
}
