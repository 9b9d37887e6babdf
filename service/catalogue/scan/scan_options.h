// Options of a scan, and its callbacks.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_SCAN_OPTIONS_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_SCAN_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace vantro::service::catalogue {

// The progress of the scan of one source.
struct ScanProgress {
    int32_t source = 0;
    int64_t seen = 0;     // files of music found so far
    int64_t read = 0;     // those of them that were new or changed, and have been read
    int64_t left_out = 0; // those of them that cannot be played
    bool done = false;
};

struct ScanOptions {
    int scan_threads = 0; // 0: one for each processor

    // Interval of full scans. They are needed although watches report changes: a watch does not see
    // changes that another machine makes in a network directory. If watches ran out, the shorter
    // interval applies.
    std::chrono::milliseconds rescan_every = std::chrono::hours(1);
    std::chrono::milliseconds rescan_unwatched = std::chrono::minutes(5);
    // The time without changes after which a changed directory is read again.
    std::chrono::milliseconds settle = std::chrono::milliseconds(300);

    // Takes one line for the log; severities are those of <vantro/platform/log.h>. Any thread.
    std::function<void(int severity, const std::string &line)> log;
    // Called by the scanning thread; if a source comes or goes, `changed` is also called by the
    // thread that watches media roots. No lock is held; the callbacks should return soon.
    std::function<void(const ScanProgress &)> progress; // about once a second, and at the end
    std::function<void(int32_t source)> changed;        // after a commit, or when `status` changed
    std::function<void(int32_t source)> prepared; // its lists were made; at start and each change
};

} // namespace vantro::service::catalogue

#endif
