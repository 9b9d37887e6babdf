// Tells the service manager again and again that the service works, where it wants to hear it
// (systemd's WatchdogSec=), and stops telling when it does not: the manager then restarts it.
//
// Three things are looked at, three times within the manager's time, by a thread of its own. A
// message to the service's own channel is answered. No serving thread has been at one request since
// the look before. The thread that watches the clock for all players has done a round since then.
// What waits for a disk that is away, a scan or the check of a file, is not looked at: a restart
// would not help it.
#ifndef VANTRO_SERVICE_WATCHDOG_H
#define VANTRO_SERVICE_WATCHDOG_H

#include <chrono>
#include <functional>
#include <thread>

#include "common/locks.h"

namespace vantro::service {

class Watchdog {
  public:
    struct Looks {
        // Whether the channel answers within the time.
        std::function<bool(std::chrono::milliseconds)> channel_answers;
        std::function<bool()> requests_get_on; // since the call before
        std::function<bool()> clock_goes;      // likewise
    };

    Watchdog() = default;
    ~Watchdog() { stop(); }
    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

    // Begins to look, unless nobody wants to hear it. Throws std::system_error if there is no
    // thread to be had.
    void start(Looks looks) EXCLUDES(mutex_);
    // Looks no more. The service ends, and nobody answers soon. Any thread.
    void end() EXCLUDES(mutex_);
    // The same, and waits until it does not look any more.
    void stop() EXCLUDES(mutex_);

  private:
    void run(const Looks &looks, std::chrono::milliseconds every) EXCLUDES(mutex_);
    bool sleep(std::chrono::milliseconds time) EXCLUDES(mutex_);

    Mutex mutex_;
    bool ended_ GUARDED_BY(mutex_) = false;
    Condition wake_;
    std::thread thread_;
};

} // namespace vantro::service

#endif
