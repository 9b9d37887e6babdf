// What the command line of vantro-mpris says.
#ifndef VANTRO_BRIDGES_MPRIS_OPTIONS_H
#define VANTRO_BRIDGES_MPRIS_OPTIONS_H

#include <string>
#include <vector>

namespace vantro::mpris {

struct Options {
    std::vector<std::string> players; // Empty: all that the service has.
};

// @return false when the program ends at once, with `exit_code`: after --help or --version, or
// because an option is wrong, which standard error says.
bool parse_options(int argc, char **argv, Options &options, int &exit_code);

} // namespace vantro::mpris

#endif
