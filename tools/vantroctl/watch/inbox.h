// Where the events of all players that are followed come together.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_INBOX_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_INBOX_H

#include <condition_variable>
#include <exception>
#include <mutex>
#include <vector>

#include "tools/vantroctl/model/player_event.h"

namespace vantro::ctl {

// Any thread puts, one takes. Holds a few hundred events and no more: while nobody takes them those
// who put wait, what happens meanwhile is kept by whoever publishes it, and memory does not grow.
class Inbox {
  public:
    // @throws Failure.
    Inbox();
    ~Inbox();
    Inbox(const Inbox &) = delete;
    Inbox &operator=(const Inbox &) = delete;

    // Waits for room, and puts all of them together. Does nothing once it is closed.
    void put(std::vector<PlayerEvent> events);

    // Has take() throw this when it has given all events before it.
    void fail(std::exception_ptr failure);

    // All events that are there, oldest first. Does not wait.
    std::vector<PlayerEvent> take();

    // Nobody takes any more, so that nobody needs to wait for room.
    void close();

    // Readable, for poll(), while there is something to take.
    int descriptor() const { return descriptor_; }

  private:
    void ring();

    int descriptor_;
    std::mutex lock_;
    std::condition_variable room_;
    std::vector<PlayerEvent> events_;
    std::exception_ptr failure_;
    bool closed_ = false;
};

} // namespace vantro::ctl

#endif
