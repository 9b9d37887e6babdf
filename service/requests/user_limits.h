// Limits of the resources that one user may have at a time.
//
// User 0 and the service's own user are not limited here. Every other user has a limit, and all
// those users together have another one. The difference between that and the service's total is a
// reserve for user 0 and the service's own user. The kernel's credentials of a connection identify
// the user. The table is in user_limits.cpp and, for readers, in docs/service.md.
#ifndef VANTRO_SERVICE_REQUESTS_USER_LIMITS_H
#define VANTRO_SERVICE_REQUESTS_USER_LIMITS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>

#include <unistd.h>

#include "common/locks.h"

namespace vantro::service::requests {

// The client that opened a connection to the service.
struct Client {
    uint64_t number = 0; // of this open, never reused; 0: no client
    int32_t connection = 0;
    int32_t pid = 0;
    uint32_t uid = geteuid();
};

enum class Limited { connections, opens, waiting_requests, waiting_bytes };
inline constexpr size_t limited_count = 4;

struct Limit {
    const char *name;
    int64_t of_one_user;
    int64_t of_all_users;
};
const Limit &limit_of(Limited what);

bool is_limited(uint32_t uid);

// Whether this process has too few descriptors left for another client of that user. Some are
// reserved for reading music and the catalogue, and some more for user 0 and the service's own
// user.
bool descriptors_are_short(uint32_t uid);

class UserLimits {
  public:
    // Takes one line for the log, when a limit first refuses something to a user since that user
    // last had nothing.
    using Log = std::function<void(const std::string &line)>;
    explicit UserLimits(Log log) : log_(std::move(log)) {}
    UserLimits(const UserLimits &) = delete;
    UserLimits &operator=(const UserLimits &) = delete;

    // Makes the messaging layer limit the descriptors of users too, until the destructor.
    void limit_descriptors();

    // Counts another open, and, if it is the connection's first, the connection. Returns whether
    // that is within the limits; if not, nothing was counted. Throws std::bad_alloc.
    bool take_open(const Client &client) EXCLUDES(mutex_);
    void give_open(const Client &client) noexcept EXCLUDES(mutex_);

    // The same for a waiting request of that many bytes.
    bool take_waiting(const Client &client, size_t bytes) EXCLUDES(mutex_);
    void give_waiting(const Client &client, size_t bytes) noexcept EXCLUDES(mutex_);

    // A player refused a track session to the client. playback::Player enforces that limit; this
    // only logs it.
    void sessions_refused(const Client &client) EXCLUDES(mutex_);

  private:
    using Amounts = std::array<int64_t, limited_count>;
    struct User {
        Amounts has = {};
        std::array<bool, limited_count> logged = {};
        bool sessions_logged = false;
    };

    // The amounts for one waiting request of that many bytes.
    static Amounts waiting(size_t bytes);
    // Counts all wanted amounts, or none. @return the limit that refuses them, if any; `first`:
    // whether it does so for the first time.
    std::optional<Limited> take(const Client &client, const Amounts &wanted, bool &first)
        REQUIRES(mutex_);
    void give(const Client &client, const Amounts &given) noexcept REQUIRES(mutex_);
    void log(const Limit &limit, int32_t pid, uint32_t uid) const EXCLUDES(mutex_);

    const Log log_;
    Mutex mutex_;
    std::unordered_map<uint32_t, User> users_ GUARDED_BY(mutex_); // including those without a limit
    Amounts all_ GUARDED_BY(mutex_) = {};                         // of all limited users
    std::unordered_map<int32_t, int64_t> opens_ GUARDED_BY(mutex_); // by connection
};

} // namespace vantro::service::requests

#endif
