// The log of the events.
#ifndef VANTRO_EVENTS_LOG_H
#define VANTRO_EVENTS_LOG_H

#include <vantro/platform/log.h>

namespace vantro::events {

// Flushes what the application itself has printed, and writes the line if its severity is above
// LOG_SEVERITY_NOTICE: traces cost no more than the flush. Keeps errno. Does not return at
// LOG_SEVERITY_CRITICAL (aborts) and LOG_SEVERITY_ERROR (exits with 1).
[[gnu::format(printf, 2, 3)]] void msglog(int severity, const char *format, ...);

} // namespace vantro::events

#endif
