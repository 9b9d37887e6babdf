// Notifies the service manager at intervals that the service works, if the manager requests it
// (systemd's WatchdogSec=). If the service does not work, the notifications stop, and the manager
// restarts it.
//
// A separate thread makes three checks, three times within the manager's time. First: a message to
// the service's own channel is answered. Second: no serving thread is still at the request that it
// had at the previous check. Third: the thread that watches the clock for all players has completed
// a round since then. Scans and checks of files, which may wait for a disk that does not answer,
// are not watched: a restart would not help.
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
        // Whether the channel answers within that time.
        std::function<bool(std::chrono::milliseconds)> channel_answers;
        std::function<bool()> requests_get_on; // since the call before
        std::function<bool()> clock_goes;      // likewise
    };

    Watchdog() = default;
    ~Watchdog() { stop(); }
    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

    // Starts the checks, unless the manager does not watch. Throws std::system_error if the thread
    // cannot be made.
    void start(Looks looks) EXCLUDES(mutex_);
    // Ends the checks. Called when the service ends and will soon not answer. Any thread.
    void end() EXCLUDES(mutex_);
    // The same, and waits for the thread.
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
