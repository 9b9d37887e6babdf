// How the music is scanned, and who is called about it.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_SCAN_OPTIONS_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_SCAN_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace vantro::service::catalogue {

// How far the scan of one source has come.
struct ScanProgress {
    int32_t source = 0;
    int64_t seen = 0;     // files of music that were found so far
    int64_t read = 0;     // those of them that were new or changed, and have been read
    int64_t left_out = 0; // those of them that cannot be played
    bool done = false;
};

struct ScanOptions {
    int scan_threads = 0; // 0: one for each processor

    // Everything is looked at again this often although the watches report changes: the watches do
    // not see what another machine does in a network directory. Where watches ran out, more often.
    std::chrono::milliseconds rescan_every = std::chrono::hours(1);
    std::chrono::milliseconds rescan_unwatched = std::chrono::minutes(5);
    // How long a changed directory must have been quiet before it is read again.
    std::chrono::milliseconds settle = std::chrono::milliseconds(300);

    // Takes one line for the log; severities are those of <vantro/platform/log.h>. Any thread.
    std::function<void(int severity, const std::string &line)> log;
    // Called by the scanning thread; `changed` also by the one that watches media roots, where a
    // source comes or goes. With nothing locked; they should return soon.
    std::function<void(const ScanProgress &)> progress; // about once a second, and at the end
    std::function<void(int32_t source)> changed;        // after a commit, or when `status` changed
};

} // namespace vantro::service::catalogue

#endif
