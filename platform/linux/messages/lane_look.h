// The receiving side of looking: a thread that was sent messages in quick succession looks at the
// words of their lane before it waits in its post.
//
// While it looks, the lane is not watched in any post, or each message would wake another thread
// that then finds nothing. The lane stays unwatched while the thread works on a message that it
// found by looking, since stopping and beginning to watch cost a system call for each post. It is
// watched again when
//  - a look was in vain, or the thread did not answer the message itself;
//  - the thread ends, or receives on another channel;
//  - its client is about to sleep over the answer (control_watch_lane): so if that thread takes
//    long, or never receives again, others can receive the client's next message.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_LANE_LOOK_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_LANE_LOOK_H

#include <memory>

#include "platform/linux/messages/look.h"
#include "platform/linux/messages/server.h"

namespace vantro::platform {

class LaneLook {
  public:
    ~LaneLook() { end(); }

    // The thread has received a message.
    void received(const Source &source, ReceivedMessage &message) EXCLUDES(server_lock);
    // Called when the thread begins to receive on a channel: whether it is to look for its next
    // message.
    // @param has_answered whether it has answered what it received last.
    bool begin(int channel, bool has_answered) EXCLUDES(server_lock);
    // Whether the thread is to look in its post first, since nobody else waits there.
    bool owes_post_a_look(Posts &posts);
    // Calls `take` for the lane when something may have come. @return the result of `take`; 0 ends
    // the look.
    template <typename Take>
    int look(Take take) EXCLUDES(server_lock) {
        LaneWords &words = words_->lane(source_.lane);
        uint32_t seen = seen_;
        if (!is_unwatched_) {
            seen = words.sent.load(std::memory_order_acquire);
            if (!unwatch()) {
                end();
                return 0;
            }
            if (const int id = take(source_); id != 0) {
                return id;
            }
        }
        for (int mistaken = 0; mistaken < mistaken_max; ++mistaken) {
            if (!budget_.look(words.sent, seen)) {
                break;
            }
            seen_ = seen = words.sent.load(std::memory_order_acquire);
            if (const int id = take(source_); id != 0) {
                return id;
            }
        }
        end();
        return 0;
    }

  private:
    // How many changes of the word without a message a look tolerates. One can be honest: a message
    // may be taken before its client changes the word. More are a client's misconduct.
    static constexpr int mistaken_max = 3;
    // How long messages that only this thread could take may lie in its post.
    static constexpr int64_t post_ns = 200'000;

    bool unwatch() EXCLUDES(server_lock);
    void end() EXCLUDES(server_lock);

    Source source_;
    std::shared_ptr<ConnectionWords> words_; // empty: no lane is looked at
    int channel_ = 0;
    int sender_ = -1;
    uint32_t seen_ = 0;
    bool is_unwatched_ = false; // as this thread left it
    int64_t post_seen_at_ = 0;
    LookBudget budget_;
};

} // namespace vantro::platform

#endif
