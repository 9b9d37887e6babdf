// A player of the run's own, in a process of its own: it takes every open, and publishes what it is
// told to.
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

    // Publishes positions; adds what each took.
    void publish(size_t count, Samples &samples);

    // Changes each object once. @return how many there are: an event for each.
    size_t change_objects();

    // As that, after so much that a reader which stands where it stood is overtaken.
    size_t overtake();

    // How a thread is woken: by the floor's request on socket(), a signal, or a position.
    enum class Means : uint32_t { message, signal, publication };

    // Has the main thread of this process woken as soon as it sleeps. Does not block; the thread
    // then waits in the way that the means takes.
    void wake(Means means);

    // For whoever has been woken. @return the time just before the other process did it.
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
// @param socket where its orders come from, until that ends; -1: none come, it waits to be ended.
int serve_publisher(int socket);

} // namespace vantro::bench

#endif
