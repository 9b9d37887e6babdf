#include "events/log.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>

#if __has_include(<stdio_ext.h>)
#include <stdio_ext.h>
#define VANTRO_HAS_FPENDING 1
#else
#define VANTRO_HAS_FPENDING 0
#endif

#include "player/handle.h"
#include "player/log.h"

namespace vantro::events {

namespace {

constexpr uint32_t log_code = 0x06C02710;

// Whether there may be something to flush. A call that finds nothing new traces six times and must
// cost next to nothing. __fpending() needs no lock of the stream, unlike fflush().
bool has_output() {
#if VANTRO_HAS_FPENDING
    return __fpending(stdout) != 0;
#else
    return true;
#endif
}

} // namespace

void msglog(int severity, const char *format, ...) {
    const platform::KeepErrno keep;
    if (has_output()) {
        std::fflush(stdout);
    }
    if (severity >= LOG_SEVERITY_NOTICE) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    player::write_line(log_code, "vantro event", severity, format, arguments);
    va_end(arguments);
}

} // namespace vantro::events
