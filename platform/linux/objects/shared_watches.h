// Waiting for rings: one inotify instance for all readers of the process, since a user has only 128
// on most hosts.
//
// A watch is made when its reader first waits, and is kept for its next waits: so a wait needs two
// system calls. One of the waiting threads is the leader: it sleeps on the instance, reads the
// events, and wakes the others by their bells. A thread that stops leading wakes another thread,
// which then leads.
//
// If a reader no longer waits, it does not burden its publisher for long: its watch is removed when
// a leader has read some events without a waiting reader, or the reader has read some changes
// without waiting.
#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_SHARED_WATCHES_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_SHARED_WATCHES_H

#include "common/locks.h"
#include "platform/linux/base/deadline.h"
#include "platform/linux/objects/wake_bell.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

// Guards the shared instance.
extern Mutex watches_lock;

// A reader that may wait.
struct RingWaiter {
    int watch GUARDED_BY(watches_lock) = -1;       // on its ring, in the shared instance
    bool waiting GUARDED_BY(watches_lock) = false; // a thread sleeps, or is about to
    // `rung`: the ring was written or closed since the last sleep ended. `closed`: its publisher
    // closed it, and that was not reported yet.
    bool rung GUARDED_BY(watches_lock) = false;
    bool closed GUARDED_BY(watches_lock) = false;
    unsigned missed GUARDED_BY(watches_lock) = 0; // events since the last sleep
    const WakeBell *bell GUARDED_BY(watches_lock) = nullptr;
    RingWaiter *next GUARDED_BY(watches_lock) = nullptr;
};

enum class Watched { already, added, failed };

// Watches a ring for a reader. After a new watch, check for text that was appended before it. On
// failure errno has the reason.
Watched watch_ring(RingWaiter &waiter, int ring_file, const WakeBell &bell) EXCLUDES(watches_lock);

// Removes the watch, if there is one and no thread waits with it.
void stop_watching(RingWaiter &waiter) EXCLUDES(watches_lock);

struct Woke {
    enum class By { ring, bell, time, signal } by;
    bool publisher_closed; // the ring, since the last call
};

// Sleeps until the ring is written or closed, the bell is rung, the deadline, or a signal handler.
// The only cancellation point here: `cancel` is lifted during the sleep.
Woke sleep_for_ring(RingWaiter &waiter, const Deadline &deadline, const CancelDisabled &cancel)
    EXCLUDES(watches_lock);

// Around a fork. The child closes its copy of the instance.
void hold_shared_watches() ACQUIRE(watches_lock);
void release_shared_watches(bool in_child) RELEASE(watches_lock);

} // namespace vantro::platform

#endif
