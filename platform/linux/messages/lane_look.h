// The receiving side of looking: a thread that received messages in quick succession looks at the
// words of their lane before it waits in its wait set.
//
// While it looks, the lane is not watched in any wait set, otherwise each message would wake
// another thread, which would find nothing. The lane stays unwatched while the thread handles a
// message that it found by looking, since removing and adding a watch cost a system call for each
// wait set. The lane is watched again when
//  - a look had no success, or the thread did not answer the message itself;
//  - the thread ends, or receives on another channel;
//  - its client is about to sleep until the answer comes (control_watch_lane): so if that thread
//    takes long, or never receives again, others can receive the client's next message.
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
    // Called when the thread begins to receive on a channel. @return whether it must look for its
    // next message.
    // @param has_answered whether it has answered its last message.
    bool begin(int channel, bool has_answered) EXCLUDES(server_lock);
    // Whether the thread must check its wait set first, since no other thread waits there.
    bool must_check_wait_set(WaitSets &wait_sets);
    // Calls `take` for the lane when a message may have come. @return the result of `take`; 0: the
    // look ended.
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
    // The number of changes of the word without a message that a look tolerates. One is legitimate:
    // a message may be received before its client changes the word. More are a client's misconduct.
    static constexpr int mistaken_max = 3;
    // How long messages that only this thread can receive may wait in its wait set.
    static constexpr int64_t wait_set_ns = 200'000;

    bool unwatch() EXCLUDES(server_lock);
    void end() EXCLUDES(server_lock);

    Source source_;
    std::shared_ptr<ConnectionWords> words_; // empty: the thread looks at no lane
    int channel_ = 0;
    int sender_ = -1;
    uint32_t seen_ = 0;
    bool is_unwatched_ = false; // set by this thread
    int64_t wait_set_seen_at_ = 0;
    LookBudget budget_;
};

} // namespace vantro::platform

#endif
