// The tool's command line.
#ifndef VANTRO_TOOLS_VANTROCTL_COMMAND_LINE_H
#define VANTRO_TOOLS_VANTROCTL_COMMAND_LINE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/verbs/listings.h"

namespace vantro::ctl {

struct Options {
    ClientOptions client;
    ListOptions list;
    std::string argument; // Of a command that takes one.
    std::optional<std::string> node;
    std::vector<std::string> nodes; // Of verbs that take several.
    std::vector<std::string> words; // To search for, also among tracks; keys of info; track ranges.
    std::string filter;
    std::string wait;             // The value of --wait; "" if the option is absent.
    std::string format;           // A template, of verbs that take one.
    int32_t number = 1;           // Of a track, from 1.
    int32_t to = 1;               // The track's new number, from 1.
    std::optional<int32_t> track; // To play, from 1.
    bool play = false;
    bool replace = false;
    bool through = false;                        // Seek into other tracks too.
    bool search = false;                         // Nodes are words to be searched for.
    std::vector<std::string> players = {"main"}; // More than one only for watch.
    bool live = false;
    bool quiet = false;
    bool verbose = false; // Show the library's log on standard error.
};

// Checks every argument before anything is sent.
class CommandLine {
  public:
    explicit CommandLine(Options &options);

    // @throws CLI::ParseError, also for --help and --version.
    void parse(int argc, char **argv);

    std::string verb() const { return app_.get_subcommands().front()->get_name(); }
    std::string help() const { return app_.help(); }

  private:
    void add_global_options();
    void add_commands();
    void add_watch();
    void add_lists();
    void add_queue();
    void add_playlists();
    void read_wait();
    void read_format();
    void set_filter(const char *filter);
    CLI::Option *with_argument(const char *verb, const char *what, const char *argument);
    CLI::App &with_format(CLI::App &command);
    CLI::App &with_range(CLI::App &command);

    Options &options_;
    CLI::App app_;
};

} // namespace vantro::ctl

#endif
