// The application's handle, and what the calls that use it share.
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

// Only opening, closing and disconnecting change a handle. The application must not let them
// overlap with other calls on it. If the handle reconnects, other calls change the connection too,
// under `connection_lock`.
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
    std::atomic<int> timeout_ms;           // Of waits for the service; 0 if they are not bounded.
    std::atomic<bool> reconnects;          // See vantro_set_reconnect().
    // If the handle reconnects: exchanges share it, and whoever replaces the connection holds it
    // alone. Release it before anything is logged, like overflow_lock.
    mutable vantro::SharedMutex connection_lock;
    // Owned. NULL until the first call for events. Another thread may look for it to end a wait.
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

// As require_connection(), for the handle alone.
bool is_valid(const VantroHandle *handle);

// Connects a handle that reconnects, and opens its player, if the service was lost. Keeps errno,
// except that it sets ETIMEDOUT as an exchange does. @return false if there is no service, which is
// logged.
bool be_connected(VantroHandle *handle);
// Whether the service of a handle that reconnects is gone.
bool has_lost_service(const VantroHandle *handle);

// Notes that no player is open any more, and ends the events.
void forget_player(VantroHandle *handle);

// Makes a handle. @return null with errno, logged.
VantroHandle *connect_handle();

using platform::KeepErrno;

} // namespace vantro::player

#endif
