// The main program for each messaging library: DIRECTORY [apart], or --serve DIRECTORY. "apart"
// gives each side its own processor; otherwise the scheduler chooses.
#include <cstdio>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include <sched.h>

#include "bench/peers/peer.h"
#include "bench/peers/turns.h"

namespace {

using vantro::bench::Child;
using vantro::bench::fail;
using namespace vantro::bench::peers;

constexpr size_t client_threads = 4;
constexpr int64_t work_ns = 1000000;

// Confines this process to the nth of the processors that it may use. If there are fewer
// processors, nothing changes.
void run_on_nth(int nth) {
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    for (size_t i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(i, &allowed) && nth-- == 0) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(i, &one);
            sched_setaffinity(0, sizeof one, &one);
        }
    }
}

// An exchange after each millisecond of work.
Times paced(Caller &caller, size_t count) {
    Times times;
    for (size_t i = 0; i < count; ++i) {
        for (const int64_t begin = now_ns(); now_ns() - begin < work_ns;) {
        }
        times.push_back(time_each(1, [&] { caller.exchange(); })[0]);
    }
    return times;
}

// All threads make exchanges at the same time; each makes the full number.
Times threaded(std::vector<std::unique_ptr<Caller>> &callers, size_t count) {
    std::vector<Times> found(callers.size());
    {
        std::latch start(static_cast<std::ptrdiff_t>(callers.size()));
        std::vector<std::jthread> threads;
        for (size_t i = 0; i < callers.size(); ++i) {
            threads.emplace_back([&, i] {
                callers[i]->exchange(); // a connection that belongs to the thread is made here
                start.arrive_and_wait();
                found[i] = time_each(count, [&] { callers[i]->exchange(); });
            });
        }
    }
    Times all;
    for (const Times &times : found) {
        all.insert(all.end(), times.begin(), times.end());
    }
    return all;
}

} // namespace

void vantro::bench::peers::ready() {
    std::puts("ready");
    std::fflush(stdout);
}

int main(int argc, char **argv) {
    if (argc == 3 && std::string(argv[1]) == "--serve") {
        serve(argv[2]);
        return 0;
    }
    if (argc < 2) {
        fail("the directory is missing");
    }
    const std::string directory = argv[1];
    const bool apart = argc == 3 && std::string(argv[2]) == "apart";
    cpu_set_t whole;
    sched_getaffinity(0, sizeof whole, &whole);
    if (apart) {
        run_on_nth(1);
    }
    Child server({"/proc/self/exe", "--serve", directory}, -1,
                 Child::Errors::passed_on); // inherits the processor
    server.wait_for_line("ready");
    if (apart) {
        sched_setaffinity(0, sizeof whole, &whole);
        run_on_nth(0);
    }
    const std::unique_ptr<Caller> caller = connect(directory);
    std::vector<std::unique_ptr<Caller>> callers;
    while (callers.size() < client_threads) {
        callers.push_back(connect(directory));
    }
    return take_turns({
        {"exchange", [&](size_t count) { return time_each(count, [&] { caller->exchange(); }); }},
        {"paced", [&](size_t count) { return paced(*caller, count); }},
        {"threads", [&](size_t count) { return threaded(callers, count); }},
    });
}
