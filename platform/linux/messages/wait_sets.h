// The wait sets in which the threads of a channel wait, and their watches on its sockets.
//
// A channel has one wait set for threads that run anywhere: the floating set, an epoll set that
// they share. A channel that hands over (channel_hand_over()) also has one wait set for each
// processor to which a thread is confined. A client that sends from a processor then wakes the
// thread of that processor: no other processor has to be woken, which would cost several times as
// much as an exchange.
//
// Invariants of a channel that hands over:
//
// - Every socket is watched in every wait set, exclusively: the kernel goes through the sets in the
//   order in which they began to watch, and stops at the first that has a waiting thread. So the
//   set of a lane's own processor (its home) comes first. A set without a waiting thread records
//   the event and passes it on; the next thread that waits there checks the socket again. So a
//   message wakes one waiting thread if there is one; otherwise the next thread that waits finds
//   the message.
// - A thread takes one event in each call, so that no event waits for a busy thread.
// - While there are threads, at least one floats: a confined thread cannot run if another program
//   occupies its processor.
// - An exclusive watch cannot be changed: to change its events, or to get one again, it is removed
//   from all wait sets and added again. Exclusive watches do not report a half-close; it shows as a
//   receive of 0.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_WAIT_SETS_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_WAIT_SETS_H

#include <sched.h>
#include <sys/epoll.h>

#include <atomic>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "common/locks.h"
#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// The lock of the whole receiving side; see server.h.
extern Mutex server_lock;

// A watched socket.
struct WatchedSocket {
    uint32_t events = 0; // EPOLL*
    uint64_t data = 0;   // the data of its events
    int home = -1;       // the processor whose thread must be woken first; -1: none
};

class WaitSets {
  public:
    // Makes the floating wait set. @return false with errno.
    bool make();
    // Threads take processors from now on. Call it before anything is watched.
    // @param end_data the data of the event of end().
    // @return false with errno.
    bool hand_over(uint64_t end_data) REQUIRES(server_lock);
    bool hands_over() const { return hands_over_; }

    // Each returns false with errno; the descriptor is then not watched.
    bool watch(int fd, const WatchedSocket &watched) REQUIRES(server_lock);
    // Also reports again the events that are pending now.
    bool watch_again(int fd, const WatchedSocket &watched) REQUIRES(server_lock);
    void unwatch(int fd) REQUIRES(server_lock);
    // Stops the events of a watched descriptor, until resume(), which also reports those pending by
    // then. resume() @return false if the descriptor cannot be watched any more.
    void pause(int fd) REQUIRES(server_lock);
    bool resume(int fd, const WatchedSocket &watched) REQUIRES(server_lock);

    // If the channel hands over: sets the home of a watched descriptor, whose wait set then comes
    // first. Call it again after generation() has changed.
    bool set_home(int fd, int home) REQUIRES(server_lock);
    // Changes whenever a wait set comes or goes.
    uint32_t generation() const REQUIRES(server_lock) { return generation_; }
    // If the channel hands over: reports an event again that a thread took but cannot serve.
    void report_again(uint64_t data) REQUIRES(server_lock);

    // Wakes every thread that waits, now or later. Only if the channel hands over.
    void end();

    // The calling thread takes a wait set: that of one of these processors, or the floating one.
    // @param processor receives the wait set's processor, -1 for the floating one. @return the set
    // in which it must wait.
    int take(const cpu_set_t &allowed, int &processor) REQUIRES(server_lock);
    // The thread releases its wait set. Events that only that wait set received are reported again.
    void leave(int processor) REQUIRES(server_lock);
    // Whether a confined thread must release its processor, since no other thread floats.
    bool needs_floating() const { return floating_ == 0; }
    // Threads that wait in one of the wait sets.
    std::atomic<int> &waiting() { return waiting_; }
    int floating() const { return shared_.get(); }

    // In a child of fork.
    void close_in_child() REQUIRES(server_lock);

  private:
    struct WaitSet {
        UniqueFd epoll;
        int processor;
    };

    bool add(int epoll, int fd, const WatchedSocket &watched) const;
    bool add_everywhere(int fd, const WatchedSocket &watched) REQUIRES(server_lock);
    int take_processor(int processor) REQUIRES(server_lock);

    UniqueFd shared_; // the floating set; made once
    UniqueFd end_;    // readable once the channel has ended; not watched exclusively
    WatchedSocket end_watched_;
    std::atomic<bool> hands_over_ = false; // set before any thread waits
    std::atomic<int> floating_ = 0;        // threads; counted if the channel hands over
    std::atomic<int> waiting_ = 0;
    uint32_t generation_ GUARDED_BY(server_lock) = 1;
    std::vector<WaitSet> sets_ GUARDED_BY(server_lock); // one a processor
    // By descriptor. Filled if the channel hands over.
    std::unordered_map<int, WatchedSocket> watched_ GUARDED_BY(server_lock);
};

struct Channel;

// The wait set of the calling thread on a channel: the set in which it must wait now. The first
// call takes a wait set; if the channel hands over, the thread may be confined to a processor from
// then on. The end of the thread, or a call for another channel, releases the wait set.
int my_wait_set(Channel &channel) EXCLUDES(server_lock);

} // namespace vantro::platform

#endif
