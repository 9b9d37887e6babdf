// The log of the player API.
#ifndef VANTRO_PLAYER_LOG_H
#define VANTRO_PLAYER_LOG_H

#include <vantro/platform/log.h>

namespace vantro {

// Writes one line, after what the application itself has printed. Keeps errno. Does not return at
// LOG_SEVERITY_CRITICAL (aborts) and LOG_SEVERITY_ERROR (exits with 1).
[[gnu::format(printf, 2, 3)]] void msglog(int severity, const char *format, ...);

} // namespace vantro

#endif
