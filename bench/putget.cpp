// Round trips through the messaging layer to the bench's own service.
#include <latch>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include "bench/own_service.h"
#include "bench/plain_copy.h"
#include "bench/run.h"

namespace vantro::bench {

namespace {

// Threads of the server in rows with several client threads.
constexpr int many_server_threads = 4;
constexpr int most_client_threads = 8;
constexpr int client_counts[] = {1, 10, 100, 1000};

// All threads make exchanges at the same time on one connection; each makes the full number.
Batch threaded(MsgClient *client, int thread_count) {
    return [client, thread_count](size_t count, Samples &samples) {
        std::vector<Samples> found(static_cast<size_t>(thread_count));
        std::latch start(thread_count);
        {
            std::vector<std::jthread> threads;
            threads.reserve(found.size());
            for (Samples &mine : found) {
                threads.emplace_back([&start, &mine, client, count] {
                    start.arrive_and_wait();
                    each([client] { exchange_small(client); })(count, mine);
                });
            }
        }
        for (const Samples &mine : found) {
            samples.append(mine);
        }
    };
}

void small_rows(Run &run) {
    const Apart apart;
    if (!run.wants("putget_small")) {
        if (run.wants("floor")) {
            run.against_floor({}, 20000, true);
        }
        return;
    }
    const Server server(1);
    const Client client = connect();
    const Contender contender{"putget_small", 1, each([&] { exchange_small(client.get()); })};
    run.against_floor({contender}, 20000, run.wants("floor"));
}

void large_row(Run &run, const std::string &name, uint32_t bytes, size_t usual_iterations) {
    if (!run.wants(name)) {
        return;
    }
    const Apart apart;
    const Server server(1);
    const Client client = connect();
    std::vector<char> reply(bytes);
    PlainCopy copy(bytes);
    const std::vector<Samples> found =
        alternate({copy.batch(), each([&] { exchange(client.get(), reply.data(), bytes); })},
                  run.iterations_or(usual_iterations), batch_size);
    const double bare = found[0].percentile_us(0.5);
    run.add(name, found[1], {}, 1);
    Row &row = run.rows.back();
    row.ratio = row.median / bare;
    row.note = fmt::format("{:.3f} of a stream socket's {:.1f} us", *row.ratio, bare);
}

void thread_rows(Run &run) {
    for (int threads = 1; threads <= most_client_threads; ++threads) {
        const std::string name = fmt::format("putget_threads_{}", threads);
        if (!run.wants(name)) {
            continue;
        }
        const Server server(many_server_threads);
        const Client client = connect();
        run.against_floor({{name, many_server_threads, threaded(client.get(), threads)}}, 4000);
    }
}

// The cost for a client that works between its calls. Without hand-over each call wakes a processor
// that has gone to sleep. The floor has both its sides on one processor, and computes for the same
// time in between.
void paced_rows(Run &run) {
    for (const int milliseconds : {1, 5}) {
        const std::string name = fmt::format("putget_paced_{}ms", milliseconds);
        if (!run.wants(name)) {
            continue;
        }
        const auto paced = [milliseconds](const auto &exchange) {
            return [milliseconds, &exchange](size_t count, Samples &samples) {
                for (size_t i = 0; i < count; ++i) {
                    for (const int64_t begin = now_ns(); now_ns() - begin < milliseconds * 1e6;) {
                    }
                    exchange(1, samples);
                }
            };
        };
        std::optional<Together> together(std::in_place);
        Floor floor;
        const Batch floor_exchange = floor.batch();
        const Batch work_on_floor = paced(floor_exchange);
        together.reset();
        const Server server(many_server_threads);
        const Client client = connect();
        const Batch exchange = each([&] { exchange_small(client.get()); });
        const std::vector<Samples> found = alternate({[&](size_t count, Samples &samples) {
                                                          const Together one_processor;
                                                          work_on_floor(count, samples);
                                                      },
                                                      paced(exchange)},
                                                     run.iterations_or(1000), batch_size);
        run.add(name, found[1], found[0].percentile_us(0.5), many_server_threads);
        const double tail = found[1].percentile_us(0.99) / found[0].percentile_us(0.99);
        run.rows.back().note = fmt::format("the floor on one processor; of its p99 {:.2f}", tail);
    }
}

// A server with so many connected clients. Each batch is done by the next client.
class Crowd {
  public:
    explicit Crowd(int count) : instance_(fmt::format("clients_{}", count)), server_(1, instance_) {
        for (int i = 0; i < count; ++i) {
            clients_.push_back(connect(instance_.c_str()));
        }
    }

    Contender contender() {
        return {"putget_" + instance_, 1, [this](size_t count, Samples &samples) {
                    MsgClient *client = clients_[next_++ % clients_.size()].get();
                    each([client] { exchange_small(client); })(count, samples);
                }};
    }

  private:
    std::string instance_;
    Server server_;
    std::vector<Client> clients_;
    size_t next_ = 0;
};

// The rows with few and with many clients take turns, so that their ratio is meaningful.
void client_rows(Run &run) {
    const Apart apart;
    std::vector<std::unique_ptr<Crowd>> crowds;
    std::vector<Contender> contenders;
    for (const int count : client_counts) {
        if (!run.wants(fmt::format("putget_clients_{}", count))) {
            continue;
        }
        crowds.push_back(std::make_unique<Crowd>(count));
        contenders.push_back(crowds.back()->contender());
    }
    if (!contenders.empty()) {
        run.against_floor(contenders, 20000);
    }
}

} // namespace

void putget_rows(Run &run) {
    small_rows(run);
    for (const uint32_t kib : {1, 4, 16, 64, 256}) {
        large_row(run, fmt::format("putget_{}k", kib), kib * 1024, 5000);
    }
    large_row(run, "putget_1m", most_reply_bytes, 1000);
    thread_rows(run);
    paced_rows(run);
    client_rows(run);
}

} // namespace vantro::bench
