// How the service identifies the tool, and what the doctor found.
#ifndef VANTRO_TOOLS_VANTROCTL_MODEL_IDENTITY_H
#define VANTRO_TOOLS_VANTROCTL_MODEL_IDENTITY_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/vantroctl/failure.h"

namespace vantro::ctl {

struct Identity {
    int32_t pid = 0;
    uint32_t uid = 0;
    std::string user; // Its name here; "" if it has none.
    uint32_t gid = 0;
    std::string group;
    std::vector<uint32_t> groups; // Supplementary groups, as far as the service knows them.
    std::vector<std::string> capabilities; // None where permission bits decide.
    int32_t service_pid = 0;
    std::string version; // Of the service.
};

// One thing that was looked at.
struct Finding {
    enum class Kind { good, note, bad };

    Kind kind = Kind::good;
    std::string subject; // One word.
    std::string text;
    std::string fix = {};            // What to do about it; "" where nothing need be done.
    Outcome outcome = Outcome::done; // What it ends the run with.
};

inline const char *kind_name(Finding::Kind kind) {
    return kind == Finding::Kind::good ? "ok" : kind == Finding::Kind::note ? "note" : "bad";
}

} // namespace vantro::ctl

#endif
