// Words in memory that both sides of a connection share, so that a waiting side can see whether the
// other has sent a message, and need not sleep. A word is only a hint that the socket may have a
// message: the socket carries every message.
//
// The server makes the memory at a client's request, and both map it. Either side may write
// anything into it at any time. So neither side trusts it: if a word changes without a message, the
// reader only checks its socket in vain; if a word does not change, waiting costs the same as
// without words. Each side keeps its counts in private memory. The file is sealed, so that no
// mapped page can disappear.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_LANE_WORDS_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_LANE_WORDS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include <vantro/platform/limits.h>

#include "platform/linux/base/mapping.h"
#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// The words of one lane. Each side's words have a separate cache line.
struct LaneWords {
    alignas(64) std::atomic<uint32_t> sent;     // by the client: changes after each message
    alignas(64) std::atomic<uint32_t> answered; // by the server: changes after each answer
    // Written by the server: not 0 while a message on this lane wakes no thread. A client that is
    // about to sleep then sends control_watch_lane first.
    std::atomic<uint32_t> unwatched;
};
static_assert(sizeof(LaneWords) == 128);
static_assert(std::atomic<uint32_t>::is_always_lock_free);

class ConnectionWords {
  public:
    // Makes the memory. `file` receives the file that the peer must map. @return empty if that
    // fails.
    static std::shared_ptr<ConnectionWords> make(UniqueFd &file);
    // Maps a peer's file, if it has the form that make() creates. @return empty if it has not, or
    // cannot be mapped.
    static std::shared_ptr<ConnectionWords> adopt(int file);

    explicit ConnectionWords(Mapping mapping) : mapping_(std::move(mapping)) {}
    // In a child of fork.
    void forget_in_child() { mapping_.reset(); }

    LaneWords &lane(size_t index) {
        return reinterpret_cast<LaneWords *>(mapping_.data())[index % IPC_LANES_MAX];
    }

  private:
    Mapping mapping_;
};

} // namespace vantro::platform

#endif
