// What is said of scans: in the log, and, while somebody looks on, on the terminal.
#ifndef VANTRO_SERVICE_SCAN_REPORT_H
#define VANTRO_SERVICE_SCAN_REPORT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "service/catalogue/store.h"

namespace vantro {

// In the log a scan that goes on says so this often.
inline constexpr std::chrono::seconds scan_log_every{10};

class ScanReport {
  public:
    // Calls `complete` once, when each of that many sources has been read through a first time.
    ScanReport(std::size_t sources, std::function<void(const std::string &)> log,
               std::function<void()> complete);

    // By one thread at a time.
    void note(const ScanProgress &progress);

  private:
    struct Seen {
        bool once = false;
        std::chrono::steady_clock::time_point logged;
    };

    const std::size_t sources_;
    const std::function<void(const std::string &)> log_;
    const std::function<void()> complete_;
    const bool terminal_;
    std::map<int32_t, Seen> seen_;
    std::size_t done_ = 0; // sources that have been read through
};

} // namespace vantro

#endif
