// What whoever started the service is told of its first scan. The log has the rest.
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
    // Calls `complete` once, when each of that many sources has been read through.
    ScanReport(size_t sources, std::function<void()> complete);

    // Shows how far it is where a terminal looks on. By one thread.
    void note(const catalogue::ScanProgress &progress);

  private:
    const size_t sources_;
    const std::function<void()> complete_;
    const bool terminal_;
    std::set<int32_t> done_; // sources that have been read through
};

} // namespace vantro::service

#endif
