#include "tools/vantroctl/service/library_log.h"

#include <cstdint>
#include <cstdio>

#include <vantro/platform/log.h>

#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {
namespace {

void print_line(uint32_t, int, const char *line, void *) {
    // The line may contain text that a service has published.
    std::fprintf(stderr, "%s\n", clean_text(line).c_str());
}

void drop_line(uint32_t, int, const char *, void *) {}

} // namespace

void listen_to_library(bool aloud) {
    system_log_set_sink(aloud ? print_line : drop_line, nullptr);
}

} // namespace vantro::ctl
