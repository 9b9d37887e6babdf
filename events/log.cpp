#include "events/log.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "player/handle.h"
#include "player/log.h"

namespace vantro::events {

namespace {

constexpr std::uint32_t log_code = 0x06C02710;

} // namespace

void msglog(int severity, const char *format, ...) {
    const KeepErrno keep;
    std::fflush(stdout);
    if (severity >= LOG_SEVERITY_NOTICE)
        return;
    std::va_list arguments;
    va_start(arguments, format);
    write_line(log_code, "vantro event", severity, format, arguments);
    va_end(arguments);
}

} // namespace vantro::events
