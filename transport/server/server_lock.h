// The lock of a server, for Clang's analysis.
//
// The lock itself is in a public structure of C, which has no annotations. `server_lock`
// stands for it: a thread never holds the locks of two servers, so one name is enough for all.
#ifndef VANTRO_TRANSPORT_SERVER_SERVER_LOCK_H
#define VANTRO_TRANSPORT_SERVER_SERVER_LOCK_H

#include <pthread.h>

#include <vantro/messaging.h>

#include "common/locks.h"

namespace vantro::transport {

class CAPABILITY("mutex") ServerLockName {
  public:
    void lock(MsgServer *server) const ACQUIRE() { pthread_mutex_lock(&server->lock); }
    void unlock(MsgServer *server) const RELEASE() { pthread_mutex_unlock(&server->lock); }
};
inline constexpr ServerLockName server_lock;

// The server lock, held until release() or the end of the scope.
class SCOPED_CAPABILITY ServerLock {
  public:
    explicit ServerLock(MsgServer *server) ACQUIRE(server_lock) : server_(server) { take(); }
    ~ServerLock() RELEASE() {
        if (held_) {
            release();
        }
    }

    ServerLock(const ServerLock &) = delete;
    ServerLock &operator=(const ServerLock &) = delete;

    void take() ACQUIRE(server_lock) {
        server_lock.lock(server_);
        held_ = true;
    }

    void release() RELEASE(server_lock) {
        held_ = false;
        server_lock.unlock(server_);
    }

  private:
    MsgServer *server_;
    bool held_ = false;
};

} // namespace vantro::transport

#endif
