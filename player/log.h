// The log of the player API, and the function that writes lines for the events as well.
#ifndef VANTRO_PLAYER_LOG_H
#define VANTRO_PLAYER_LOG_H

#include <cstdarg>
#include <cstdint>

#include <vantro/platform/log.h>

namespace vantro::player {

// Flushes standard output, then writes one line. Keeps errno. Does not return at
// LOG_SEVERITY_CRITICAL (aborts) and LOG_SEVERITY_ERROR (exits with 1).
[[gnu::format(printf, 2, 3)]] void msglog(int severity, const char *format, ...);

// Writes one line of the form "SPEAKER: MESSAGE", cut to 1023 characters. Like msglog(), does not
// return for some severities.
[[gnu::format(printf, 4, 0)]] void write_line(uint32_t code, const char *speaker, int severity,
                                              const char *format, va_list arguments);

} // namespace vantro::player

#endif
