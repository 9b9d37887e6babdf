// The log: the program's sink, else the host's log daemon, else standard error.
#include <vantro/platform/log.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <vantro/platform/limits.h>

#include "common/locks.h"
#include "platform/linux/base/never_destroyed.h"
#include "platform/linux/base/unique_fd.h"
#include "platform/portable/guards.h"

namespace {

using vantro::platform::KeepErrno;

std::atomic<int> log_level = LOG_SEVERITY_TRACE;

struct Sink {
    vantro::SharedMutex lock;
    system_log_sink sink GUARDED_BY(lock) = nullptr;
    void *data GUARDED_BY(lock) = nullptr;

    static Sink &instance() {
        static vantro::platform::NeverDestroyed<Sink> instance;
        return *instance.get();
    }
};

int priority_of(int severity) {
    switch (severity) {
    case LOG_SEVERITY_CRITICAL:
        return LOG_CRIT;
    case LOG_SEVERITY_ERROR:
        return LOG_ERR;
    case LOG_SEVERITY_WARNING:
        return LOG_WARNING;
    case LOG_SEVERITY_NOTICE:
        return LOG_NOTICE;
    case LOG_SEVERITY_INFO:
        return LOG_INFO;
    default:
        return LOG_DEBUG;
    }
}

// If no daemon listens, syslog(3) loses the line silently. The socket alone proves little: it
// outlives a crashed daemon.
bool daemon_listens() {
    const vantro::platform::UniqueFd probe(
        ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const struct sockaddr_un address = {AF_UNIX, "/dev/log"};
    return ::connect(probe.get(), reinterpret_cast<const struct sockaddr *>(&address),
                     sizeof address) == 0 ||
           errno == EPROTOTYPE; // it listens on a stream
}

void write_to_host(uint32_t code, int severity, const char *line) {
    if (daemon_listens()) {
        ::syslog(LOG_USER | priority_of(severity), "[%08x] %s", code, line);
    } else {
        std::fprintf(stderr, "[%08x] %s\n", code, line);
    }
}

} // namespace

void system_log(uint32_t code, int severity, const char *format, ...) {
    if (severity > log_level.load(std::memory_order_relaxed) && severity <= LOG_SEVERITY_TRACE) {
        return;
    }
    const KeepErrno keep;
    char line[SYSTEM_LOG_LINE];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    Sink &sink = Sink::instance();
    const vantro::ReaderLock guard(sink.lock);
    if (sink.sink) {
        sink.sink(code, severity, line, sink.data);
    } else {
        write_to_host(code, severity, line);
    }
}

void system_log_set_level(int severity) {
    log_level = severity;
}

void system_log_set_sink(system_log_sink function, void *data) {
    Sink &sink = Sink::instance();
    const vantro::WriterLock guard(sink.lock);
    sink.sink = function;
    sink.data = data;
}
