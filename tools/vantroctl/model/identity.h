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
    std::string user; // The user's name on this machine; "" if it has none.
    uint32_t gid = 0;
    std::string group;
    std::vector<uint32_t> groups;          // Supplementary groups, as many as the service reports.
    std::vector<std::string> capabilities; // Empty if permission bits decide.
    int32_t service_pid = 0;
    std::string version; // Of the service.
};

// The result of one check.
struct Finding {
    enum class Kind { good, note, bad };

    Kind kind = Kind::good;
    std::string subject; // One word.
    std::string text;
    std::string fix = {};            // The remedy; "" if none is needed.
    Outcome outcome = Outcome::done; // The exit code that it causes.
};

inline const char *kind_name(Finding::Kind kind) {
    return kind == Finding::Kind::good ? "ok" : kind == Finding::Kind::note ? "note" : "bad";
}

} // namespace vantro::ctl

#endif
