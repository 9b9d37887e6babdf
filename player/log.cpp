#include "player/log.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "player/handle.h"

namespace vantro::player {

namespace {

constexpr uint32_t log_code = 0x06B02710;
constexpr size_t line_size = 1024;

} // namespace

void write_line(uint32_t code, const char *speaker, int severity, const char *format,
                va_list arguments) {
    char line[line_size];
    const int wanted = std::snprintf(line, sizeof line, "%s: ", speaker);
    // A name longer than the line leaves room only for the NUL.
    size_t prefix = wanted < 0 ? 0 : static_cast<size_t>(wanted);
    if (prefix > sizeof line - 1) {
        prefix = sizeof line - 1;
    }
    if (std::vsnprintf(line + prefix, sizeof line - prefix, format, arguments) < 0) {
        line[prefix] = '\0';
    }

    system_log(code, severity, "%s", line);
    if (severity == LOG_SEVERITY_CRITICAL) {
        std::abort();
    }
    if (severity == LOG_SEVERITY_ERROR) {
        std::exit(1);
    }
}

void msglog(int severity, const char *format, ...) {
    const KeepErrno keep;
    std::fflush(stdout);
    va_list arguments;
    va_start(arguments, format);
    write_line(log_code, program_invocation_short_name, severity, format, arguments);
    va_end(arguments);
}

} // namespace vantro::player
