// Reports the progress of the first scan on the terminal. The log has the rest.
#ifndef VANTRO_SERVICE_SCAN_REPORT_H
#define VANTRO_SERVICE_SCAN_REPORT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>

#include "service/catalogue/store.h"

namespace vantro::service {

class ScanReport {
  public:
    // Calls `complete` once, when each of `sources` has been scanned.
    ScanReport(std::set<int32_t> sources, std::function<void()> complete);

    // Shows the progress if standard error is a terminal. Called by one thread.
    void note(const catalogue::ScanProgress &progress);

  private:
    std::set<int32_t> sources_; // that have not been scanned yet
    const std::function<void()> complete_;
    const bool terminal_;
};

} // namespace vantro::service

#endif
