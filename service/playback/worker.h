// A thread that does a round when look() was called, or at the time that its last round named.
//
// It sleeps without a timer if the last round named no time.
#ifndef VANTRO_SERVICE_PLAYBACK_WORKER_H
#define VANTRO_SERVICE_PLAYBACK_WORKER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace vantro::service::playback {

class Worker {
  public:
    // Returns the time until the next round, or nothing if the next round waits for look().
    using Round = std::function<std::optional<std::chrono::nanoseconds>()>;

    explicit Worker(Round round) : round_(std::move(round)) {}
    ~Worker() { stop(); }
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    // Does the first round at once. Throws std::system_error where there is no thread to be had.
    void start();

    // Ends after the round under way, for good.
    void stop();

    // Calls for one more round, which begins after this call. Any thread, a round included; also
    // before the start and after the end.
    void look();

  private:
    void run();

    const Round round_;
    std::mutex mutex_; // guards the two that follow; not held during a round
    bool wanted_ = false;
    bool stop_ = false;
    std::condition_variable wake_;
    std::thread thread_;
};

} // namespace vantro::service::playback

#endif
