// How often vantrod, and a client that follows one of its players, run while nothing happens.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

#include <fmt/format.h>

#include "bench/publisher.h"
#include "bench/run.h"
#include "bench/service.h"

namespace vantro::bench {

namespace {

using namespace std::chrono_literals;

constexpr const char *row_name = "idle_wakeups";
constexpr auto settling = 500ms;
constexpr auto watched = 1s;

// How often the thread of a status file was switched out, voluntarily or not.
long switches_of(const std::filesystem::path &status) {
    std::ifstream file(status);
    long sum = 0;
    int found = 0;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string key;
        long count = 0;
        if (words >> key >> count && key.ends_with("voluntary_ctxt_switches:")) {
            sum += count;
            ++found;
        }
    }
    if (found != 2) {
        fail("cannot read " + status.string());
    }
    return sum;
}

long switches_of_process(pid_t pid) {
    long sum = 0;
    for (const auto &thread :
         std::filesystem::directory_iterator(fmt::format("/proc/{}/task", pid))) {
        sum += switches_of(thread.path() / "status");
    }
    return sum;
}

} // namespace

void idle_row(Run &run) {
    if (!run.wants(row_name)) {
        return;
    }
    const SilentService service(run.directory);
    const Player player = open_player();
    while (vantro_event_get(player.get())->object_name) {
    }
    std::atomic<pid_t> waiter{0};
    std::thread waiting([&] {
        waiter = static_cast<pid_t>(syscall(SYS_gettid));
        waiter.notify_all();
        if (vantro_event_wait(player.get()) != 0) {
            fail_errno("waiting for an event");
        }
    });
    waiter.wait(0);
    while (!is_asleep(getpid(), waiter)) {
    }
    const auto status = fmt::format("/proc/self/task/{}/status", waiter.load());
    const auto both = [&] { return switches_of_process(service.pid()) + switches_of(status); };
    // By then the work that opening the player has started is over.
    std::this_thread::sleep_for(settling);
    const long before = both();
    std::this_thread::sleep_for(watched);
    const auto count = static_cast<double>(both() - before);
    if (vantro_play(player.get()) != 0) {
        fail("vantrod refused to play");
    }
    waiting.join();
    run.rows.push_back({row_name, "1/s", count, count, {}, Service::threads});
}

} // namespace vantro::bench
