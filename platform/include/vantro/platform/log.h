/**
 * @file
 * The system's log.
 *
 * A line goes to the host's log daemon with its code in the text, and to standard error if no
 * daemon listens. A program may set a sink of its own, which then receives every line instead.
 */
#ifndef VANTRO_PLATFORM_LOG_H
#define VANTRO_PLATFORM_LOG_H

#include <stdint.h>

#include <vantro/platform/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Severities, most severe first. */
enum {
    LOG_SEVERITY_CRITICAL = 1,
    LOG_SEVERITY_ERROR = 2,
    LOG_SEVERITY_WARNING = 3,
    LOG_SEVERITY_NOTICE = 4,
    LOG_SEVERITY_INFO = 5,
    LOG_SEVERITY_DEBUG = 6,
    LOG_SEVERITY_TRACE = 7
};

/**
 * Receives a line of the log instead of the host's daemon.
 * @param code, severity as system_log() was given them.
 * @param line NUL-terminated, without a line end, valid for the call only.
 * @param data what system_log_set_sink() was given.
 */
typedef void (*system_log_sink)(uint32_t code, int severity, const char *line, void *data);

/**
 * Writes one line. Lines longer than SYSTEM_LOG_LINE are cut. Keeps errno. Any thread.
 * @param code     names the component that speaks; printed in hexadecimal.
 * @param severity LOG_SEVERITY_*; anything else counts as LOG_SEVERITY_TRACE.
 * @param format   as printf(3).
 */
VANTRO_PLATFORM_API void system_log(uint32_t code, int severity, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/**
 * Drops every later line of this process that is less severe than this, also before a sink of the
 * program's own. Any thread; does not fail.
 * @param severity LOG_SEVERITY_*; at first LOG_SEVERITY_TRACE, which drops nothing.
 */
VANTRO_PLATFORM_API void system_log_set_level(int severity);

/**
 * Sets the sink of this process; NULL restores the host's log. When the call returns no other
 * thread is still in the earlier sink. Not to be called from a sink.
 * @param sink receives every later line; NULL ends that.
 * @param data handed to the sink with each line.
 */
VANTRO_PLATFORM_API void system_log_set_sink(system_log_sink sink, void *data);

#ifdef __cplusplus
}
#endif

#endif
