// The application's handle, and functions that its calls share.
#ifndef VANTRO_PLAYER_HANDLE_H
#define VANTRO_PLAYER_HANDLE_H

#include <atomic>
#include <cerrno>
#include <cstdint>

#include <vantro/messaging.h>
#include <vantro/player.h>

#include "common/locks.h"
#include "platform/portable/guards.h"

struct EventQueue;

// Only opening, closing and disconnecting change a handle. In the application they must not overlap
// other calls on the handle. If the handle reconnects, other calls change the connection too, under
// `connection_lock`.
struct VantroHandle {
    MsgClient *connection; // NULL only while the handle is made or torn down.
    char *player_name;     // Owned. NULL while no player is open.
    // An opening or closing that has had no answer, for example because a signal interrupted it.
    // The service may or may not have carried it out; the next opening or closing finds out.
    char *unanswered_open; // Owned. The name of the player to open, and then player_name is
                           // NULL. NULL if there is no such opening.
    bool close_unanswered; // Whether the closing of player_name has had no answer.
    char *read_buffer PT_GUARDED_BY(lock); // Owned. Receives changes of status objects.
    uint32_t read_capacity;                // Bytes at read_buffer.
    std::atomic<int> timeout_ms;           // Limit of waits for the service; 0: no limit.
    std::atomic<bool> reconnects;          // See vantro_set_reconnect().
    // Used if the handle reconnects: exchanges hold it shared, and a thread that replaces the
    // connection holds it exclusively. Release it before logging, like overflow_lock.
    mutable vantro::SharedMutex connection_lock;
    // Owned. NULL until the first call for events. Another thread may read it to end a wait.
    std::atomic<struct EventQueue *> event_queue;
    std::atomic<bool> is_woken; // A wake that came before there was a queue.
    vantro::Mutex lock;         // Held while an event is retrieved.
    // Held around each exchange whose answer may overflow, and around its fetch: the service holds
    // all overflowing answers of a connection under one tag, and a fetch takes the newest. Must be
    // released before anything is logged: logging flushes standard output, which may block, and
    // calls the log's sink, which may use the same handle.
    vantro::Mutex overflow_lock;
};

namespace vantro::player {

// Whether a handle is connected, and whether it also has an open player. Logged if not. Connects
// again if the service is gone and the application wants that.
bool require_connection(VantroHandle *handle);
bool require_player(VantroHandle *handle);

// Like require_connection(), but checks only the handle.
bool is_valid(const VantroHandle *handle);

// If the service was lost, connects a handle that reconnects, and opens its player. Keeps errno,
// except that it sets ETIMEDOUT like an exchange. @return false if no service runs, which is
// logged.
bool be_connected(VantroHandle *handle);
// Whether the service of a handle that reconnects is gone.
bool has_lost_service(const VantroHandle *handle);

// Records that no player is open any more, and ends the events.
void forget_player(VantroHandle *handle);

// Makes a handle. @param no_memory_severity of the log line if there is no memory for the handle;
// LOG_SEVERITY_CRITICAL ends the process. @return null with errno, logged.
VantroHandle *connect_handle(int no_memory_severity);

using platform::KeepErrno;

} // namespace vantro::player

#endif
