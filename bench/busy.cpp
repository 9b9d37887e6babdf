// Exchanges while other programs use every processor: the time that looking then costs or saves.
#include <unistd.h>

#include <memory>
#include <thread>
#include <vector>

#include <vantro/platform/message.h>

#include <fmt/format.h>

#include "bench/own_service.h"
#include "bench/run.h"

namespace vantro::bench {

namespace {

void busy_row(Run &run, const std::string &name, int nice) {
    if (!run.wants(name)) {
        return;
    }
    std::vector<std::unique_ptr<Child>> hogs;
    for (unsigned i = 0; i < std::thread::hardware_concurrency(); ++i) {
        hogs.push_back(std::make_unique<Child>(
            std::vector<std::string>{program_beside(""), "--serve", fmt::format("hog:{}", nice)}));
    }
    const Apart apart;
    const Server looking_server(1, "looking", true);
    const Server sleeping_server(1, "sleeping", false);
    const Client looking_client = connect("looking");
    const Client sleeping_client = connect("sleeping");
    const auto batch = [](const Client &client, bool looks) {
        return [&client, looks](size_t count, Samples &samples) {
            ipc_allow_looking(looks);
            each([&client] { exchange_small(client.get()); })(count, samples);
        };
    };
    const std::vector<Samples> found =
        alternate({batch(looking_client, true), batch(sleeping_client, false)},
                  run.iterations_or(20000), batch_size);
    ipc_allow_looking(Server::looking_wanted);
    run.add(name, found[0], {}, 1);
    Row &row = run.rows.back();
    row.ratio = found[0].mean_us() / found[1].mean_us();
    row.note = fmt::format("mean {:.2f} us, {:.3f} of the mean without looking; p99 there {:.1f}",
                           found[0].mean_us(), *row.ratio, found[1].percentile_us(0.99));
}

} // namespace

void busy_rows(Run &run) {
    busy_row(run, "putget_busy", 0);
    busy_row(run, "putget_busy_nice", 10);
}

int keep_busy(int nice) {
    if (::nice(nice) == -1) {
        return 1;
    }
    for (volatile unsigned turns = 0;;) {
        turns = turns + 1;
    }
}

} // namespace vantro::bench
