// Where the events of all players that are followed come together.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_INBOX_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_INBOX_H

#include <exception>
#include <vector>

#include "common/locks.h"
#include "tools/vantroctl/model/player_event.h"

namespace vantro::ctl {

// Any thread puts events, one takes them. It holds a few hundred events at most. When it is full
// put() waits, so that memory does not grow; what happens meanwhile stays in the service's ring.
class Inbox {
  public:
    // @throws Failure.
    Inbox();
    ~Inbox();
    Inbox(const Inbox &) = delete;
    Inbox &operator=(const Inbox &) = delete;

    // Waits for room, and puts all of them together. Does nothing once it is closed.
    void put(std::vector<PlayerEvent> events) EXCLUDES(lock_);

    // Makes take() throw this, after it has returned all events put before.
    void fail(std::exception_ptr failure) EXCLUDES(lock_);

    // All events that are there, oldest first. Does not wait.
    std::vector<PlayerEvent> take() EXCLUDES(lock_);

    // To be called when no event will be taken any more: put() no longer waits.
    void close() EXCLUDES(lock_);

    // Readable, for poll(), while there is something to take.
    int descriptor() const { return descriptor_; }

  private:
    void ring();

    int descriptor_;
    Mutex lock_;
    Condition room_;
    std::vector<PlayerEvent> events_ GUARDED_BY(lock_);
    std::exception_ptr failure_ GUARDED_BY(lock_);
    bool closed_ GUARDED_BY(lock_) = false;
};

} // namespace vantro::ctl

#endif
