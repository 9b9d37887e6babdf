// Checks the directories of music and the media roots that are given.
#ifndef VANTRO_SERVICE_MUSIC_CHECK_H
#define VANTRO_SERVICE_MUSIC_CHECK_H

#include <optional>
#include <string>
#include <vector>

#include "service/error.h"
#include "service/options.h"

namespace vantro::service {

struct WrongMusic {
    const char *option; // the one that the error is about
    Error error;
};

// Each directory must be readable and given once, and each folder in one source.
// @param known directories that are in use already: they may be away for a while.
std::optional<WrongMusic> check_music(const Options &options,
                                      const std::vector<std::string> &known = {});

} // namespace vantro::service

#endif
