// Many clients at the same time, each in its own process; and a short request that arrives while a
// long one is computed.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <fmt/format.h>

#include "bench/own_service.h"
#include "bench/run.h"

namespace vantro::bench {

namespace {

constexpr int server_threads = 4;
constexpr int client_processes = 100;
constexpr std::chrono::seconds counted_for{3};

// A number that processes which inherited the descriptor add to.
std::atomic<uint64_t> *shared_count(int descriptor) {
    void *const memory = mmap(nullptr, sizeof(std::atomic<uint64_t>), PROT_READ | PROT_WRITE,
                              MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED) {
        fail_errno("mmap");
    }
    return static_cast<std::atomic<uint64_t> *>(memory);
}

void processes_row(Run &run) {
    constexpr const char *name = "exchanges_processes_100";
    if (!run.wants(name)) {
        return;
    }
    const int descriptor = memfd_create("exchanges", MFD_CLOEXEC);
    if (descriptor < 0 || ftruncate(descriptor, sizeof(std::atomic<uint64_t>)) != 0) {
        fail_errno("memfd_create");
    }
    const std::atomic<uint64_t> *const count = shared_count(descriptor);
    const Server server(server_threads);
    std::vector<std::unique_ptr<Child>> callers;
    while (callers.size() < client_processes) {
        callers.push_back(
            std::make_unique<Child>(std::vector<std::string>{program_beside(""), "--serve",
                                                             fmt::format("caller:{}", descriptor)},
                                    descriptor));
        callers.back()->wait_for_line("ready");
    }
    const uint64_t before = *count;
    const int64_t begin = now_ns();
    std::this_thread::sleep_for(counted_for);
    const uint64_t exchanges = *count - before;
    const double rate =
        static_cast<double>(exchanges) * 1e9 / static_cast<double>(now_ns() - begin);
    run.rows.push_back({name, "1/s", rate, rate, {}, server_threads});
    close(descriptor);
}

// The row's ratio: the 99th percentile against that of exchanges without the long request.
void behind_long_row(Run &run) {
    constexpr const char *name = "putget_behind_5ms";
    if (!run.wants(name)) {
        return;
    }
    const Server server(2); // one computes, the other is idle
    const Client short_client = connect();
    const Client long_client = connect();
    const Batch alone = each([&] { exchange_small(short_client.get()); });
    const Batch beside = [&](size_t count, Samples &samples) {
        std::atomic<bool> ending = false;
        const std::jthread computing([&] {
            while (!ending) {
                exchange_long(long_client.get());
            }
        });
        alone(count, samples);
        ending = true;
    };
    const std::vector<Samples> found =
        alternate({alone, beside}, run.iterations_or(20000), batch_size);
    run.add(name, found[1], {}, 2);
    Row &row = run.rows.back();
    row.ratio = row.p99 / found[0].percentile_us(0.99);
    row.note = fmt::format("p99 {:.2f} of that without the long request", *row.ratio);
}

} // namespace

void crowd_rows(Run &run) {
    processes_row(run);
    behind_long_row(run);
}

int call_for_ever(int descriptor) {
    std::atomic<uint64_t> *const count = shared_count(descriptor);
    const Client client = connect();
    exchange_small(client.get());
    std::puts("ready");
    std::fflush(stdout);
    for (;;) {
        exchange_small(client.get());
        ++*count;
    }
}

} // namespace vantro::bench
