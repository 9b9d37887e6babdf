// Words in memory that both sides of a connection see, so that a side which waits can look whether
// the other has sent something, and need not sleep. A word is a hint and never more: it says that
// it may be worth asking the socket, which carries every message.
//
// The server makes the memory when a client asks for it, and both map it. Either may write anything
// into it at any time. So neither believes it: a word that is changed for no reason costs the
// reader a look at its socket, and a word that is not changed costs what waiting costs without
// words. What a side counts, it counts in its own memory. The file is sealed, so that no page can
// be taken away from under a mapping.
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

// Of one lane. Each side's are on a cache line of their own.
struct LaneWords {
    alignas(64) std::atomic<uint32_t> sent;     // by the client: changes after each message
    alignas(64) std::atomic<uint32_t> answered; // by the server: changes after each answer
    // By the server: not 0 while no thread is woken by a message on this lane. A client that is
    // about to sleep then sends control_watch_lane first.
    std::atomic<uint32_t> unwatched;
};
static_assert(sizeof(LaneWords) == 128);
static_assert(std::atomic<uint32_t>::is_always_lock_free);

class ConnectionWords {
  public:
    // Makes the memory. `file` receives what the peer is to map. @return empty if it cannot.
    static std::shared_ptr<ConnectionWords> make(UniqueFd &file);
    // Maps a peer's, if it is what make() makes. @return empty if it is not, or cannot be.
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
