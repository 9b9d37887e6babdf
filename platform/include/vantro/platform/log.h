/**
 * @file
 * The system's log.
 *
 * A line goes to the host's log daemon with its code in the text, and to standard error if no
 * daemon listens. A program may set its own sink, which then receives every line instead.
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
 * @param code, severity the arguments of system_log().
 * @param line NUL-terminated, without a line end, valid for the call only.
 * @param data the argument of system_log_set_sink().
 */
typedef void (*system_log_sink)(uint32_t code, int severity, const char *line, void *data);

/**
 * Writes one line. Lines longer than SYSTEM_LOG_LINE are cut. Keeps errno. Any thread.
 * @param code names the logging component; printed in hexadecimal.
 * @param severity LOG_SEVERITY_*; any other value counts as LOG_SEVERITY_TRACE.
 * @param format as for printf(3).
 */
VANTRO_PLATFORM_API void system_log(uint32_t code, int severity, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/**
 * Drops every later line of this process that is less severe than this, also if the program has its
 * own sink. Any thread; does not fail.
 * @param severity LOG_SEVERITY_*; the default LOG_SEVERITY_TRACE drops nothing.
 */
VANTRO_PLATFORM_API void system_log_set_level(int severity);

/**
 * Sets the sink of this process; NULL restores the host's log. When the call returns, no other
 * thread is still in the earlier sink. Must not be called from a sink.
 * @param sink receives every later line; NULL: no sink.
 * @param data passed to the sink with each line.
 */
VANTRO_PLATFORM_API void system_log_set_sink(system_log_sink sink, void *data);

#ifdef __cplusplus
}
#endif

#endif
