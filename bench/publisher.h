// A player that belongs to the run, in its own process. It accepts every open and publishes what
// the run requests.
#ifndef VANTRO_BENCH_PUBLISHER_H
#define VANTRO_BENCH_PUBLISHER_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include <sys/types.h>

#include "bench/measure.h"
#include "bench/process.h"

namespace vantro::bench {

class Publisher {
  public:
    Publisher();
    ~Publisher();
    Publisher(const Publisher &) = delete;
    Publisher &operator=(const Publisher &) = delete;

    // Publishes positions; adds the time that each took.
    void publish(size_t count, Samples &samples);

    // Changes each object once. @return the number of objects, each of which gives one event.
    size_t change_objects();

    // The same, after publishing so much that a reader that has not read is overtaken.
    size_t overtake();

    // The ways of waking a thread: the floor's request on socket(), a signal, or a position.
    enum class Means : uint32_t { message, signal, publication };

    // Orders that the main thread of this process be woken as soon as it sleeps. Does not block.
    // The thread must then wait in the corresponding way.
    void wake(Means means);

    // To be called by the thread that was woken. @return the time just before the other process
    // woke it.
    int64_t woken_at();

    pid_t pid() const { return child_->pid(); }

    static constexpr const char *player = "bench";
    static constexpr int wake_signal = 57;

  private:
    int socket_ = -1;
    std::unique_ptr<Child> child_;
};

// Whether a thread of a process sleeps in a system call.
bool is_asleep(pid_t process, pid_t thread);

// The other side, in a process of its own.
// @param socket brings its orders, until it ends; -1: no orders come, and it waits to be ended.
int serve_publisher(int socket);

} // namespace vantro::bench

#endif
