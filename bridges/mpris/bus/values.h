// Writes values into messages of the bus, and failures as its errors.
#ifndef VANTRO_BRIDGES_MPRIS_BUS_VALUES_H
#define VANTRO_BRIDGES_MPRIS_BUS_VALUES_H

#include <string>
#include <vector>

#include <systemd/sd-bus.h>

#include <vantro/vantro.hpp>

#include "bridges/mpris/song.h"

namespace vantro::mpris {

// Each returns 0 or more, or a negative error number, like the calls of sd-bus.

int append_metadata(sd_bus_message *to, const Song &song);

// An array of object paths.
int append_paths(sd_bus_message *to, const std::vector<std::string> &paths);

// Sets an error of the bus with the reason. @return a negative number, for the handler to return.
int set_error(sd_bus_error *error, const Failure &failure);

} // namespace vantro::mpris

#endif
