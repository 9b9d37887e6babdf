#include "transport/server/held_by_user.h"

#include <unistd.h>

#include <map>
#include <new>
#include <utility>

#include <vantro/platform/log.h>
#include <vantro/platform/message.h>

#include "common/locks.h"
#include "transport/server/refusals.h"

namespace vantro::transport {

namespace {

constexpr uint32_t log_code = 0x06B02710; // the library's

struct User {
    int64_t bytes = 0;
    bool logged = false;
};

// Never destroyed, since threads may still serve while the process ends.
struct Users {
    Mutex mutex;
    std::map<uint32_t, User> each GUARDED_BY(mutex);
    int64_t all_bytes GUARDED_BY(mutex) = 0;
};

Users &users() {
    static Users *const the_users = new Users;
    return *the_users;
}

bool is_limited(uint32_t uid) {
    return uid != 0 && uid != geteuid();
}

} // namespace

Holder holder_of(const MsgOsb &open) {
    ipc_credentials credentials = {};
    return connect_client_info(open.conn_id, &credentials, 0) == 0
               ? Holder{credentials.uid, credentials.pid}
               : Holder{static_cast<uint32_t>(-1), 0};
}

Taken take_held_bytes(const Holder &holder, int64_t bytes) noexcept {
    if (!is_limited(holder.uid)) {
        return Taken::yes;
    }
    try {
        Users &all = users();
        const MutexLock guard(all.mutex);
        User &user = all.each[holder.uid];
        if (user.bytes + bytes <= held_bytes_of_one_user &&
            all.all_bytes + bytes <= held_bytes_of_all_users) {
            user.bytes += bytes;
            all.all_bytes += bytes;
            return Taken::yes;
        }
        return std::exchange(user.logged, true) ? Taken::no : Taken::no_for_the_first_time;
    } catch (const std::bad_alloc &) {
        return Taken::no;
    }
}

void give_held_bytes(const Holder &holder, int64_t bytes) noexcept {
    if (bytes == 0 || !is_limited(holder.uid)) {
        return;
    }
    Users &all = users();
    const MutexLock guard(all.mutex);
    const auto user = all.each.find(holder.uid);
    if (user == all.each.end()) {
        return;
    }
    all.all_bytes -= bytes;
    user->second.bytes -= bytes;
    if (user->second.bytes == 0) {
        all.each.erase(user);
    }
}

void log_held_limit(const Holder &holder) {
    char name[32];
    name_of_process(holder.pid, name);
    system_log(log_code, LOG_SEVERITY_WARNING,
               "limit reached: no more answers are held for user %u (%d MiB for one user, %d MiB "
               "for all), asked for by process %d (%s)",
               holder.uid, static_cast<int>(held_bytes_of_one_user >> 20),
               static_cast<int>(held_bytes_of_all_users >> 20), holder.pid, name);
}

} // namespace vantro::transport
