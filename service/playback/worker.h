// A thread that runs a round when look() was called, or at the time that the last round returned.
// If the last round returned no time, the thread sleeps without a timer.
#ifndef VANTRO_SERVICE_PLAYBACK_WORKER_H
#define VANTRO_SERVICE_PLAYBACK_WORKER_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <thread>
#include <utility>

#include "common/locks.h"

namespace vantro::service::playback {

class Worker {
  public:
    // Returns the time until the next round, or nothing if the next round waits for look().
    using Round = std::function<std::optional<std::chrono::nanoseconds>()>;

    // @param name of the thread, for people; at most 15 bytes.
    Worker(const char *name, Round round) : name_(name), round_(std::move(round)) {}
    ~Worker() { stop(); }
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    // Runs the first round at once. Throws std::system_error if the thread cannot be made.
    void start();

    // Ends the thread permanently, after the round in progress.
    void stop() EXCLUDES(mutex_);

    // Requests another round, which begins after this call. Any thread, also during a round; also
    // before the start and after the end.
    void look() EXCLUDES(mutex_) { look_within(std::chrono::nanoseconds(0)); }

    // Requests another round that begins after this call, within that time. Costs no system call if
    // a round is due by then.
    void look_within(std::chrono::nanoseconds time) EXCLUDES(mutex_);

    // The number of completed rounds. Any thread.
    uint64_t rounds() const { return rounds_; }

  private:
    using Time = std::chrono::steady_clock::time_point;
    void run() EXCLUDES(mutex_);
    void wait_until_due() REQUIRES(mutex_);

    const char *const name_;
    const Round round_;
    Mutex mutex_;                               // not held during a round
    Time due_ GUARDED_BY(mutex_) = Time::max(); // of the next round; max: only on request
    bool stop_ GUARDED_BY(mutex_) = false;
    Condition wake_;
    std::atomic<uint64_t> rounds_ = 0;
    std::thread thread_;
};

} // namespace vantro::service::playback

#endif
