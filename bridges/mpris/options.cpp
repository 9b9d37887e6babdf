#include "bridges/mpris/options.h"

#include <cstdio>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <vantro/protocol.h>
#include <vantro/version.h>

namespace vantro::mpris {

namespace {

constexpr int exit_usage = 2;

std::string check_player(const std::string &name) {
    return !name.empty() && name.size() <= VANTRO_PLAYER_NAME_MAX
               ? ""
               : fmt::format("'{}' does not have 1 to {} characters", name, VANTRO_PLAYER_NAME_MAX);
}

} // namespace

bool parse_options(int argc, char **argv, Options &options, int &exit_code) {
    CLI::App app{
        "Shows the players of the vantro service as MPRIS media players of the session bus.",
        "vantro-mpris"};
    app.set_version_flag("--version", "vantro-mpris " VANTRO_VERSION);
    app.add_option("--player", options.players,
                   "Name of a player to show; may be given several times (default: all)")
        ->type_name("NAME")
        ->allow_extra_args(false)
        ->check(check_player);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &success) {
        exit_code = app.exit(success);
        return false;
    } catch (const CLI::ParseError &error) {
        fmt::print(stderr, "vantro-mpris: {}\nTry 'vantro-mpris --help'.\n", error.what());
        exit_code = exit_usage;
        return false;
    }
    return true;
}

} // namespace vantro::mpris
