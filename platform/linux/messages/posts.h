// Where the threads of a channel wait, and who watches its sockets there.
//
// A channel has one post for threads that run anywhere: the floating post, a set of epoll that they
// share. A channel that hands over (channel_hand_over()) has besides one post for each processor
// that has a thread of its own, which stays there. A client that sends from a processor then wakes
// the thread of that processor: no other processor has to be woken, which costs several times an
// exchange.
//
// Invariants where a channel hands over
//  - Every socket is watched in every post, exclusively: the kernel walks the posts in the order in
//    which they began to watch, and stops at the first that has a waiting thread. So a lane's own
//    processor (its home) comes first. A post without a waiting thread notes the event and passes
//    it on; whoever waits there next looks at the socket again. So a message wakes one waiting
//    thread if there is one, and else whoever waits next finds it.
//  - A thread takes one event a call, so that no event waits for a thread that is busy.
//  - As long as there are threads, at least one floats: a thread that stays on its processor
//    cannot help where another program has that processor.
//  - An exclusive watch cannot be changed: to change its events, or to get one again, it is removed
//    from all posts and added. A half-close cannot be watched for; it shows as a receive of 0.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_POSTS_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_POSTS_H

#include <sched.h>
#include <sys/epoll.h>

#include <atomic>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "common/locks.h"
#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// Of the whole receiving side; see server.h.
extern Mutex server_lock;

// What is watched.
struct WatchedSocket {
    uint32_t events = 0; // EPOLL*
    uint64_t data = 0;   // what an event of it gives
    int home = -1;       // the processor whose thread is to be woken first; -1: none
};

class Posts {
  public:
    // Makes the floating post. @return false with errno.
    bool make();
    // Has threads take processors from now on. Before anything is watched.
    // @param end_data what an event of end() gives.
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

    // Where the channel hands over: gives a descriptor that is watched this home, whose post then
    // comes first. To be called again once generation() is another.
    bool set_home(int fd, int home) REQUIRES(server_lock);
    // Changes whenever a post comes or goes.
    uint32_t generation() const REQUIRES(server_lock) { return generation_; }
    // Where the channel hands over: an event that a thread took, and cannot serve, is reported
    // again.
    void tell_again(uint64_t data) REQUIRES(server_lock);

    // Wakes every thread that waits, now or later. Only where the channel hands over.
    void end();

    // The calling thread takes a post: one of these processors, or the floating one. @param
    // processor receives the post's processor, -1 for the floating one. @return the set in which it
    // is to wait.
    int take(const cpu_set_t &allowed, int &processor) REQUIRES(server_lock);
    // The thread gives its post up. Events that only that post got are reported again.
    void leave(int processor) REQUIRES(server_lock);
    // Whether a thread that has a processor is to give it up, since no other floats.
    bool needs_floating() const { return floating_ == 0; }
    // Threads that wait in one of the posts.
    std::atomic<int> &waiting() { return waiting_; }
    int floating() const { return shared_.get(); }

    // In a child of fork.
    void close_in_child() REQUIRES(server_lock);

  private:
    struct Post {
        UniqueFd epoll;
        int processor;
    };

    bool add(int epoll, int fd, const WatchedSocket &watched) const;
    bool add_everywhere(int fd, const WatchedSocket &watched) REQUIRES(server_lock);
    int take_processor(int processor) REQUIRES(server_lock);

    UniqueFd shared_; // the floating post's set; made once
    UniqueFd end_;    // readable once the channel has ended; not watched exclusively
    WatchedSocket end_watched_;
    std::atomic<bool> hands_over_ = false; // set before any thread waits
    std::atomic<int> floating_ = 0;        // threads; counted where the channel hands over
    std::atomic<int> waiting_ = 0;
    uint32_t generation_ GUARDED_BY(server_lock) = 1;
    std::vector<Post> posts_ GUARDED_BY(server_lock); // one a processor
    // By descriptor. Filled where the channel hands over.
    std::unordered_map<int, WatchedSocket> watched_ GUARDED_BY(server_lock);
};

struct Channel;

// The post of the calling thread on a channel: the set in which it is to wait now. Its first call
// takes one; where the channel hands over, the thread may be confined to a processor from then on.
// The end of the thread, or a call for another channel, gives it up.
int my_post(Channel &channel) EXCLUDES(server_lock);

} // namespace vantro::platform

#endif
