#include "tools/vantroctl/service/library_log.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include <vantro/platform/log.h>

#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

thread_local Heard last;

bool loud = false;

void hear(uint32_t, int severity, const char *line, void *) {
    last.anything = true;
    // A follow-up that fails is logged with the lesser weight of a refusal.
    const bool exchange = severity <= LOG_SEVERITY_WARNING || std::strstr(line, "msgclient_");
    if (exchange && !last.unreachable) {
        last.unreachable = true;
        const char *colon = std::strrchr(line, ':');
        std::snprintf(last.why, sizeof last.why, "%s", colon && colon[1] == ' ' ? colon + 2 : line);
    }
    if (loud) {
        // It may quote what a service has published.
        std::fprintf(stderr, "%s\n", clean_text(line).c_str());
    }
}

} // namespace

void listen_to_library(bool aloud) {
    loud = aloud;
    system_log_set_sink(hear, nullptr);
}

void forget_heard() {
    last = {};
}

const Heard &heard() {
    return last;
}

} // namespace vantro::ctl
