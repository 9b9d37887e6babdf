// The time needed to publish, to wake a reader, and to make events from what was published.
#include <atomic>
#include <csignal>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <vantro/platform/io.h>
#include <vantro/platform/limits.h>
#include <vantro/player.h>

#include <fmt/format.h>

#include "bench/process.h"
#include "bench/publisher.h"
#include "bench/run.h"
#include "bench/service.h"
#include "bench/waiting_readers.h"

namespace vantro::bench {

namespace {

using Means = Publisher::Means;

constexpr int crowds[] = {0, 1, 10, 100};
constexpr int readers_for_memory = 1000;
constexpr size_t gets_timed_together = 1000;
// Exchanges in one turn of a long measurement. There are few, so that the contenders really take
// turns.
constexpr size_t long_batch_size = 10;

// A get with nothing new.
void get_nothing(VantroHandle *player) {
    const VantroEvent *event = vantro_event_get(player);
    if (!event) {
        fail_errno("an event failed");
    }
    if (event->type != VANTRO_EVENT_NONE) {
        fail("an event came of nothing");
    }
}

Player follow() {
    Player player = open_player(Publisher::player);
    drain(player.get());
    return player;
}

void get_idle_row(Run &run) {
    constexpr const char *name = "event_get_idle";
    if (!run.wants(name)) {
        return;
    }
    const Publisher publisher;
    const Player player = follow();
    const auto gets = [&] {
        for (size_t i = 0; i < gets_timed_together; ++i) {
            get_nothing(player.get());
        }
    };
    // The time of gets_timed_together gets in microseconds is that of one in nanoseconds.
    const Samples found = alternate({each(gets)}, run.iterations_or(1000), batch_size)[0];
    run.rows.push_back({name, "ns", found.percentile_us(0.5), found.percentile_us(0.99)});
}

// Blocks the signal that ends a wait, as long as the object lives.
class Blocked {
  public:
    Blocked() {
        sigemptyset(&signals_);
        sigaddset(&signals_, Publisher::wake_signal);
        pthread_sigmask(SIG_BLOCK, &signals_, &mask_);
    }
    ~Blocked() { pthread_sigmask(SIG_SETMASK, &mask_, nullptr); }
    Blocked(const Blocked &) = delete;
    Blocked &operator=(const Blocked &) = delete;

    void wait() const {
        if (sigwaitinfo(&signals_, nullptr) < 0) {
            fail_errno("sigwaitinfo");
        }
    }

  private:
    sigset_t signals_;
    sigset_t mask_;
};

// The time from just before another process wakes this one until this one runs again. The ways of
// waking take turns.
void wakeup_rows(Run &run) {
    if (!run.wants("floor_one_way") && !run.wants("signal_one_way") &&
        !run.wants("publish_wakeup")) {
        return;
    }
    const Apart apart;
    const Blocked signals;
    Publisher publisher;
    const Player player = follow();
    const auto one_way = [&](Means means) -> int64_t {
        publisher.wake(means);
        if (means == Means::message) {
            const int64_t before = publisher.woken_at();
            return now_ns() - before;
        }
        if (means == Means::signal) {
            signals.wait();
        } else {
            wait_for_event(player.get());
        }
        const int64_t now = now_ns();
        drain(player.get());
        return now - publisher.woken_at();
    };
    std::vector<Batch> batches;
    for (const Means means : {Means::message, Means::signal, Means::publication}) {
        batches.emplace_back([&one_way, means](size_t count, Samples &samples) {
            for (size_t i = 0; i < count; ++i) {
                samples.add(one_way(means));
            }
        });
    }
    const std::vector<Samples> found = alternate(batches, run.iterations_or(10000), batch_size);
    const double floor = found[0].percentile_us(0.5);
    const double one_signal = found[1].percentile_us(0.5);
    const char *const names[] = {"floor_one_way", "signal_one_way", "publish_wakeup"};
    for (size_t i = 0; i < std::size(names); ++i) {
        if (!run.wants(names[i])) {
            continue;
        }
        run.add(names[i], found[i], floor, 0);
        Row &row = run.rows.back();
        if (i + 1 == std::size(names)) {
            row.ratio = row.median / (1.3 * floor + one_signal);
            row.note = fmt::format("{:.3f} of 1.3 floor_one_way + signal_one_way", *row.ratio);
        }
    }
}

// Readers that are open, have read everything, and do not wait.
class IdleReaders {
  public:
    explicit IdleReaders(int count) {
        const std::string path =
            fmt::format("/kivo/services/vantro/{}/.all?delta", Publisher::player);
        std::vector<char> text(OBJECT_CHANGE_MAX);
        for (int i = 0; i < count; ++i) {
            descriptors_.push_back(platform_open(path.c_str(), O_RDONLY));
            ssize_t length = 0;
            while ((length = platform_read(descriptors_.back(), text.data(), text.size())) > 0) {
            }
            if (length < 0) {
                fail_errno("a reader");
            }
        }
    }
    ~IdleReaders() {
        for (const int descriptor : descriptors_) {
            platform_close(descriptor);
        }
    }
    IdleReaders(const IdleReaders &) = delete;
    IdleReaders &operator=(const IdleReaders &) = delete;

  private:
    std::vector<int> descriptors_;
};

// Whether `count` waits can each have an inotify instance: a user may have only a few.
bool may_wait(int count) {
    std::vector<int> instances;
    while (static_cast<int>(instances.size()) < count) {
        const int instance = inotify_init1(IN_CLOEXEC);
        if (instance < 0) {
            break;
        }
        instances.push_back(instance);
    }
    for (const int instance : instances) {
        close(instance);
    }
    return static_cast<int>(instances.size()) == count;
}

// The time that publishing takes. All rows take turns, so that their ratios are meaningful.
void publish_rows(Run &run) {
    const Apart apart;
    std::unique_ptr<Publisher> publisher;
    std::vector<std::string> names;
    std::vector<Batch> batches;
    const auto add = [&](const std::string &name, Batch batch) {
        if (!run.wants(name)) {
            return;
        }
        if (!publisher) {
            publisher = std::make_unique<Publisher>();
        }
        names.push_back(name);
        batches.push_back(std::move(batch));
    };
    const auto measure = [&](size_t usual_iterations, size_t turn, const char *against) {
        const std::vector<Samples> found =
            alternate(batches, run.iterations_or(usual_iterations), turn);
        for (size_t i = 0; i < names.size(); ++i) {
            run.add(names[i], found[i], {}, 0);
            if (names[0] != against) {
                continue;
            }
            Row &row = run.rows.back();
            row.ratio = row.median / found[0].percentile_us(0.5);
            row.note = fmt::format("{:.3f} of {}", *row.ratio, against);
        }
        names.clear();
        batches.clear();
    };
    for (const int count : crowds) {
        add(fmt::format("publish_readers_{}", count), [&, count](size_t changes, Samples &samples) {
            const IdleReaders readers(count);
            publisher->publish(changes, samples);
        });
    }
    measure(20000, batch_size, "publish_readers_0");
    for (const int count : crowds) {
        const std::string name = fmt::format("publish_waiting_{}", count);
        if (count == 0 || !run.wants(name)) {
            continue;
        }
        if (!may_wait(count)) {
            fmt::print(stderr, "vantro-bench: {} is left out: no more inotify instances\n", name);
            continue;
        }
        add(name, [&, count](size_t changes, Samples &samples) {
            WaitingReaders readers(count, Publisher::player, WaitingReaders::Run::beside_caller,
                                   [&] {
                                       Samples none;
                                       publisher->publish(1, none);
                                   });
            for (size_t i = 0; i < changes; ++i) {
                readers.sleep();
                publisher->publish(1, samples);
            }
        });
    }
    measure(200, batch_size, "publish_waiting_1");
}

// Events of all objects, from the published texts to the records that an application gets.
void read_rows(Run &run) {
    if (!run.wants("events_read_one") && !run.wants("events_read_lapped")) {
        return;
    }
    const Apart apart;
    Publisher publisher;
    const Player player = follow();
    const auto read_all = [&](size_t (Publisher::*change)()) {
        return [&, change](size_t count, Samples &samples) {
            for (size_t i = 0; i < count; ++i) {
                const auto expected = static_cast<int64_t>((publisher.*change)());
                const int64_t begin = now_ns();
                const auto events = static_cast<int64_t>(drain(player.get()));
                const int64_t took = now_ns() - begin;
                if (events != expected) {
                    fail(fmt::format("{} events came of {} objects", events, expected));
                }
                samples.add(took / events);
            }
        };
    };
    const auto add = [&](const char *name, size_t (Publisher::*change)(), size_t iterations,
                         size_t turn) {
        if (!run.wants(name)) {
            return;
        }
        run.add(name, alternate({read_all(change)}, run.iterations_or(iterations), turn)[0], {}, 0);
        Row &row = run.rows.back();
        row.note = fmt::format("{:.0f} events a second", 1e6 / row.median);
    };
    add("events_read_one", &Publisher::change_objects, 5000, batch_size);
    add("events_read_lapped", &Publisher::overtake, 200, long_batch_size);
}

// Shared pages are not counted: a reader maps pages that the publisher has too.
void reader_memory_row(Run &run) {
    constexpr const char *name = "publisher_memory_per_reader";
    if (!run.wants(name)) {
        return;
    }
    Publisher publisher;
    const auto with_readers = [&publisher](int count) {
        const IdleReaders readers(count);
        Samples none;
        publisher.publish(batch_size, none);
        return resident_bytes(publisher.pid());
    };
    // The publisher fills its ring once, so that all its code and memory has been used before.
    with_readers(readers_for_memory);
    publisher.overtake();
    const double before = with_readers(0);
    const double growth = (with_readers(readers_for_memory) - before) / readers_for_memory;
    run.rows.push_back({name, "bytes", growth, growth});
}

} // namespace

void event_rows(Run &run) {
    get_idle_row(run);
    wakeup_rows(run);
    publish_rows(run);
    read_rows(run);
    reader_memory_row(run);
}

int trace_event_gets(size_t count) {
    const Player player = follow();
    for (size_t i = 0; i < count; ++i) {
        get_nothing(player.get());
    }
    return 0;
}

} // namespace vantro::bench
