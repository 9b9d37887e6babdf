#include "service/scan_report.h"

#include <cstdio>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

namespace vantro {

ScanReport::ScanReport(std::size_t sources, std::function<void(const std::string &)> log,
                       std::function<void()> complete)
    : sources_(sources), log_(std::move(log)), complete_(std::move(complete)),
      terminal_(isatty(STDERR_FILENO) == 1) {}

void ScanReport::note(const ScanProgress &progress) {
    const auto now = std::chrono::steady_clock::now();
    Seen &seen = seen_.try_emplace(progress.source, Seen{false, now}).first->second;
    const std::string line =
        fmt::format("source {}: {} files found, {} read, {} left out", progress.source,
                    progress.seen, progress.read, progress.left_out);
    if (terminal_)
        std::fputs(fmt::format("\r{}\x1B[K{}", line, progress.done ? "\n" : "").c_str(), stderr);
    // Its end is told by the catalogue.
    if (!progress.done && now - seen.logged >= scan_log_every) {
        log_(line);
        seen.logged = now;
    }
    if (!progress.done || seen.once)
        return;
    seen.once = true;
    if (++done_ == sources_)
        complete_();
}

} // namespace vantro
