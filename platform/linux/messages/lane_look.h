// The receiving side of looking: a thread that was sent messages in quick succession looks at the
// words of their lane before it waits in its post.
//
// While it looks, the lane is not watched in any post, or each message would wake another thread
// that then finds nothing. The lane stays unwatched while the thread works on a message that it
// has found so, since to stop and begin cost a system call a post. It is watched again when
//  - a look was in vain, or the thread did not answer the message itself;
//  - the thread ends, or receives on another channel;
//  - its client is about to sleep over the answer (control_watch_lane): so a client whose thread
//    takes long, or never receives again, is not forgotten, and others may receive from it.
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
    // Whether the thread is to look for its next message, which it begins to receive on a channel.
    // @param has_answered whether it has answered what it received last.
    bool begin(int channel, bool has_answered) EXCLUDES(server_lock);
    // Whether the thread is to look in its post first, since nobody else waits there.
    bool owes_post_a_look(Posts &posts);
    // Calls `take` for the lane when something may have come. @return what that gave, or 0, and
    // then the look is over.
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
    // Changes of the word without a message that a look suffers: one for a message that was taken
    // before its client had changed the word; the rest is a client that plays with it.
    static constexpr int mistaken_max = 3;
    // How long messages that only this thread could take may lie in its post.
    static constexpr int64_t post_ns = 200'000;

    bool unwatch() EXCLUDES(server_lock);
    void end() EXCLUDES(server_lock);

    Source source_;
    std::shared_ptr<ConnectionWords> words_; // empty: it looks at none
    int channel_ = 0;
    int sender_ = -1;
    uint32_t seen_ = 0;
    bool is_unwatched_ = false; // by this thread, as far as it knows
    int64_t post_seen_at_ = 0;
    LookBudget budget_;
};

} // namespace vantro::platform

#endif
