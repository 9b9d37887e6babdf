// The verb that follows players.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_WATCH_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_WATCH_H

#include <optional>
#include <string>
#include <vector>

#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/text/template.h"

namespace vantro::ctl {

struct WatchOptions {
    std::vector<std::string> players;
    ClientOptions client; // Its `player` is not used.
    bool json = false;
    bool live = false;
    std::optional<Template> format = std::nullopt; // For each event.
};

// Returns when the reader of the output closes it, or the user ends the screen. A signal that asks
// for the end ends the process. @throws Failure.
void run_watch(const WatchOptions &options);

} // namespace vantro::ctl

#endif
