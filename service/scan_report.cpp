#include "service/scan_report.h"

#include <cstdio>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

namespace vantro::service {

ScanReport::ScanReport(std::set<int32_t> sources, std::function<void()> complete)
    : sources_(std::move(sources)), complete_(std::move(complete)),
      terminal_(isatty(STDERR_FILENO) == 1) {}

void ScanReport::note(const catalogue::ScanProgress &progress) {
    if (sources_.count(progress.source) == 0) {
        return;
    }
    if (terminal_) {
        std::fputs(fmt::format("\rsource {}: {} files, {} read, {} left out\x1B[K{}",
                               progress.source, progress.seen, progress.read, progress.left_out,
                               progress.done ? "\n" : "")
                       .c_str(),
                   stderr);
    }
    if (!progress.done) {
        return;
    }
    sources_.erase(progress.source);
    if (sources_.empty()) {
        complete_();
    }
}

} // namespace vantro::service
