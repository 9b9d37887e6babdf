// The command line of vantro-mpris.
#ifndef VANTRO_BRIDGES_MPRIS_OPTIONS_H
#define VANTRO_BRIDGES_MPRIS_OPTIONS_H

#include <string>
#include <vector>

namespace vantro::mpris {

struct Options {
    std::vector<std::string> players; // Empty: all that the service has.
};

// @return false if the program must end with `exit_code`: after --help or --version, or after a
//     wrong option, which is reported on standard error.
bool parse_options(int argc, char **argv, Options &options, int &exit_code);

} // namespace vantro::mpris

#endif
