#include "service/scan_report.h"

#include <cstdio>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

namespace vantro::service {

ScanReport::ScanReport(size_t sources, std::function<void()> complete)
    : sources_(sources), complete_(std::move(complete)), terminal_(isatty(STDERR_FILENO) == 1) {}

void ScanReport::note(const catalogue::ScanProgress &progress) {
    if (done_.count(progress.source) != 0) {
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
    done_.insert(progress.source);
    if (done_.size() == sources_) {
        complete_();
    }
}

} // namespace vantro::service
