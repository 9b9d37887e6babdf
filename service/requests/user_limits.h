// What one user may have of the service at once.
//
// One rule: user 0 and the service's own user are not limited here; every other user may have so
// much, and all those users together so much. What is left between that and what the service can
// have at all is the reserve of the first two. Users are told apart by the kernel's credentials of
// their connections. The table is in user_limits.cpp and, for readers, in docs/service.md.
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

// Who opened a connection to the service.
struct Client {
    uint64_t number = 0; // of this open, never the same one twice; 0 for nobody's
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

// Whether this process has too few descriptors left for one more client of that user. Some are kept
// for the service's own work, which is to read music and its catalogue, and some more for user 0
// and the service's own user.
bool descriptors_are_short(uint32_t uid);

class UserLimits {
  public:
    // Takes one line for the log, when a limit refuses something to a user for the first time since
    // that user had nothing.
    using Log = std::function<void(const std::string &line)>;
    explicit UserLimits(Log log) : log_(std::move(log)) {}
    UserLimits(const UserLimits &) = delete;
    UserLimits &operator=(const UserLimits &) = delete;

    // Has the messaging layer limit the descriptors of users too, as long as this lives.
    void limit_descriptors();

    // Counts one more open, and its connection where it is the first one's. Returns whether that is
    // within the limits; else nothing was counted. Throws std::bad_alloc.
    bool take_open(const Client &client) EXCLUDES(mutex_);
    void give_open(const Client &client) noexcept EXCLUDES(mutex_);

    // The same for a request of that many bytes that waits for its turn.
    bool take_waiting(const Client &client, size_t bytes) EXCLUDES(mutex_);
    void give_waiting(const Client &client, size_t bytes) noexcept EXCLUDES(mutex_);

    // A player refused a track session to it. There the limit is kept (playback::Player); here it
    // is only told.
    void sessions_refused(const Client &client) EXCLUDES(mutex_);

  private:
    using Amounts = std::array<int64_t, limited_count>;
    struct User {
        Amounts has = {};
        std::array<bool, limited_count> logged = {};
        bool sessions_logged = false;
    };

    // What one request of that many bytes that waits amounts to.
    static Amounts waiting(size_t bytes);
    // Counts all of what is wanted, or nothing. @return the limit that is in the way, if any is;
    // `first` says whether for the first time.
    std::optional<Limited> take(const Client &client, const Amounts &wanted, bool &first)
        REQUIRES(mutex_);
    void give(const Client &client, const Amounts &given) noexcept REQUIRES(mutex_);
    void log(const Limit &limit, int32_t pid, uint32_t uid) const EXCLUDES(mutex_);

    const Log log_;
    Mutex mutex_;
    std::unordered_map<uint32_t, User> users_ GUARDED_BY(mutex_);   // those without a limit too
    Amounts all_ GUARDED_BY(mutex_) = {};                           // of all limited users
    std::unordered_map<int32_t, int64_t> opens_ GUARDED_BY(mutex_); // by connection
};

} // namespace vantro::service::requests

#endif
