// The application's handle, and what the calls that use it share.
#ifndef VANTRO_PLAYER_HANDLE_H
#define VANTRO_PLAYER_HANDLE_H

#include <pthread.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include <vantro/messaging.h>
#include <vantro/player.h>

#include "platform/portable/guards.h"

struct EventQueue;

// Opening, closing and ending a handle change it and overlap no other call on it: that is the
// application's duty. All other calls only read it.
struct VantroHandle {
    MsgClient *connection; // NULL only while the handle is made or torn down.
    char *player_name;     // Owned. NULL while no player is open.
    // An opening or closing without an answer, which a signal had interrupted for example: the
    // service may have carried it out or not. The next opening or closing finds out.
    char *unanswered_open;          // Owned. The name, where it was an opening. Then no player is
                                    // open. NULL otherwise.
    bool close_unanswered;          // It was the closing of player_name.
    char *read_buffer;              // Owned. Where changes of status objects are read.
    uint32_t read_capacity;         // Bytes at read_buffer.
    struct EventQueue *event_queue; // Owned. NULL until the first call for events.
    pthread_mutex_t lock;           // Held while an event is retrieved.
    // Held around each exchange whose answer may overflow, and the fetch of it: every overflowing
    // answer of a connection is held under one tag, and a fetch takes the newest.
    pthread_mutex_t overflow_lock;
};

namespace vantro::player {

// Whether a call can go ahead on a handle: connected, and with an open player. Where it cannot,
// that is logged.
bool require_connection(const VantroHandle *handle);
bool require_player(const VantroHandle *handle);

using platform::KeepErrno;

// Not held while something is logged: that writes to standard output, which may block, and calls
// the log's sink, which may ask the same handle.
class OverflowLock {
  public:
    explicit OverflowLock(VantroHandle *handle) : mutex_(&handle->overflow_lock) {
        pthread_mutex_lock(mutex_);
    }
    ~OverflowLock() { release(); }
    OverflowLock(const OverflowLock &) = delete;
    OverflowLock &operator=(const OverflowLock &) = delete;

    void release() {
        if (mutex_) {
            pthread_mutex_unlock(std::exchange(mutex_, nullptr));
        }
    }

  private:
    pthread_mutex_t *mutex_; // NULL once released.
};

} // namespace vantro::player

#endif
