// The memory that a connected client without requests costs vantrod.
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "bench/run.h"
#include "bench/service.h"

namespace vantro::bench {

namespace {

constexpr int client_count = 1000;
constexpr const char *row_name = "service_memory_per_client";

// The number in a line "KEY: N kB" of a file about a process.
double bytes_of(pid_t pid, const char *file_name, const std::string &wanted) {
    const std::string path = fmt::format("/proc/{}/{}", pid, file_name);
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string key;
        double kib = 0;
        if (words >> key >> kib && key == wanted) {
            return kib * 1024;
        }
    }
    fail(fmt::format("no {} in {}", wanted, path));
}

} // namespace

double pss_bytes(pid_t pid) {
    return bytes_of(pid, "smaps_rollup", "Pss:");
}

double resident_bytes(pid_t pid) {
    return bytes_of(pid, "smaps_rollup", "Rss:");
}

double most_resident_bytes(pid_t pid) {
    return bytes_of(pid, "status", "VmHWM:");
}

void memory_row(Run &run) {
    if (!run.wants(row_name)) {
        return;
    }
    const SilentService service(run.directory);
    const double before = pss_bytes(service.pid());
    std::vector<Player> players;
    players.reserve(client_count);
    for (int i = 0; i < client_count; ++i) {
        players.push_back(open_player());
    }
    const double growth = (pss_bytes(service.pid()) - before) / client_count;
    run.rows.push_back({row_name, "bytes", growth, growth, {}, Service::threads});
}

} // namespace vantro::bench
