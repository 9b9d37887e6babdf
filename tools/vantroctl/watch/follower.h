// Follows a player through its events, also from one run of the service to the next.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_FOLLOWER_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_FOLLOWER_H

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/locks.h"
#include "tools/vantroctl/model/player_event.h"
#include "tools/vantroctl/service/client.h"

namespace vantro::ctl {

class Inbox;

// Gives the full picture first, then each event. When the service ends it gives `gone` and looks
// for the service; `waiting` where something other than its absence is in the way; then `back` and
// the full picture again. Waiting for events takes no processor time. No event says that a service
// has come back, so the follower looks for it after 0.2 s, and then less and less often, down to
// once a second.
class Follower {
  public:
    // Connects and gets the full picture. @throws Failure where there is nothing to follow.
    Follower(const ClientOptions &options, Inbox &inbox);
    ~Follower();
    Follower(const Follower &) = delete;
    Follower &operator=(const Follower &) = delete;

    // Starts the thread that puts events into the inbox. To be called once.
    void start();

  private:
    // What look() found.
    enum class Look { event, nothing, gone };

    void begin(double timeout_s);
    Look look(PlayerEvent &event);
    [[noreturn]] void fail(int error) const;
    void run() EXCLUDES(lock_);
    void follow();
    void wake_by(VantroHandle *handle) EXCLUDES(lock_);
    bool wait_for_service();
    bool stopped_within(int ms) EXCLUDES(lock_);
    PlayerEvent event_of(PlayerEvent::Kind kind) const;

    ClientOptions options_;
    Inbox &inbox_;
    std::unique_ptr<Client> client_;
    std::vector<PlayerEvent> picture_; // The full picture, until it is put into the inbox.

    Mutex lock_;
    Condition changed_;
    bool stopping_ GUARDED_BY(lock_) = false;
    VantroHandle *waiting_for_ GUARDED_BY(lock_) = nullptr; // while the thread follows
    std::thread thread_;
};

} // namespace vantro::ctl

#endif
