// Checks the directories of music and the media roots of the options.
#ifndef VANTRO_SERVICE_MUSIC_CHECK_H
#define VANTRO_SERVICE_MUSIC_CHECK_H

#include <optional>
#include <string>
#include <vector>

#include "service/error.h"
#include "service/options.h"

namespace vantro::service {

struct WrongMusic {
    std::string place; // of the option with the error, as place_of() returns it
    Error error;
};

// Each directory must be readable and given only once, and each folder must belong to one source.
// @param known directories already in use, which may be unavailable for a while.
std::optional<WrongMusic> check_music(const Options &options,
                                      const std::vector<std::string> &known = {});

} // namespace vantro::service

#endif
