#include "tools/vantroctl/service/library_log.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>

#include <vantro/platform/log.h>

#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

thread_local LoggedFailure last;

bool loud = false;

// Failures that the library logs with the lesser weight of a refusal: a follow-up exchange, and
// want of memory in this process.
constexpr const char *lesser_failures[] = {"msgclient_", "Cannot allocate memory", "No memory"};

void hear(uint32_t, int severity, const char *line, void *) {
    last.anything = true;
    const bool in_exchange =
        severity <= LOG_SEVERITY_WARNING ||
        std::any_of(std::begin(lesser_failures), std::end(lesser_failures),
                    [line](const char *words) { return std::strstr(line, words) != nullptr; });
    if (in_exchange && !last.in_exchange) {
        last.in_exchange = true;
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

void forget_logged_failure() {
    last = {};
}

const LoggedFailure &logged_failure() {
    return last;
}

} // namespace vantro::ctl
