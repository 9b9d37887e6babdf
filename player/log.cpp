#include "player/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "player/handle.h"

namespace vantro {

namespace {

constexpr std::uint32_t log_code = 0x06B02710;
constexpr std::size_t line_size = 1024;

} // namespace

void msglog(int severity, const char *format, ...) {
    const KeepErrno keep;
    std::fflush(stdout);

    char line[line_size];
    const int wanted = std::snprintf(line, sizeof line, "%s: ", program_invocation_short_name);
    // A name longer than the line leaves room for the NUL alone.
    std::size_t prefix = wanted < 0 ? 0 : static_cast<std::size_t>(wanted);
    if (prefix > sizeof line - 1)
        prefix = sizeof line - 1;

    std::va_list arguments;
    va_start(arguments, format);
    if (std::vsnprintf(line + prefix, sizeof line - prefix, format, arguments) < 0)
        line[prefix] = '\0';
    va_end(arguments);

    system_log(log_code, severity, "%s", line);
    if (severity == LOG_SEVERITY_CRITICAL)
        std::abort();
    if (severity == LOG_SEVERITY_ERROR)
        std::exit(1);
}

} // namespace vantro
