#include "service/requests/user_limits.h"

#include <algorithm>
#include <fstream>
#include <utility>

#include <fmt/format.h>
#include <sys/eventfd.h>
#include <sys/resource.h>

#include <vantro/catalogue.h>
#include <vantro/platform/message.h>

#include "service/playback/player.h"

namespace vantro::service::requests {

namespace {

// In the order of Limited.
constexpr Limit limits[] = {
    // Each takes at least two descriptors, of which a service often has 4096.
    {"connections", 256, 1024},
    // The messaging layer has 32768.
    {"opens", 2048, 24576},
    // As many as 16 connections can send with all their lanes.
    {"waiting requests", 1024, 4096},
    // They take memory of the service, and one request may have 2 MiB.
    {"bytes of waiting requests", int64_t{32} << 20, int64_t{128} << 20},
};
static_assert(std::size(limits) == limited_count);

constexpr const char *sessions = "track sessions of a player";
constexpr Limit session_limit = {sessions, playback::sessions_of_one_user,
                                 playback::sessions_of_all_users};
// For user 0 and the service's own user.
constexpr Limit whole_session_limit = {sessions, VANTRO_TRKSESSIONS_MAX, VANTRO_TRKSESSIONS_MAX};

// Descriptors: a scan has a few open for each of its threads, a reader of the catalogue two.
constexpr rlim_t kept_for_own_work = 48;
constexpr rlim_t kept_from_users = 96;

// Descriptors that connections may not use. Fewer are reserved here than for opens, so that an
// ordinary client can connect and is refused at the open, with a reason.
constexpr uint32_t kept_from_connections = 24;
constexpr uint32_t kept_from_connections_of_users = 48;

Limit descriptor_limit() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const auto all = static_cast<int64_t>(std::min<rlim_t>(limit.rlim_cur, 1 << 20));
    return {"descriptors", std::max<int64_t>(all / 4, 1), std::max<int64_t>(all * 5 / 8, 1)};
}

// The process's own name, without characters that would break a line.
std::string name_of_process(int32_t pid) {
    std::string name;
    std::getline(std::ifstream(fmt::format("/proc/{}/comm", pid)), name);
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return name;
}

} // namespace

const Limit &limit_of(Limited what) {
    return limits[static_cast<size_t>(what)];
}

bool is_limited(uint32_t uid) {
    static const uid_t own = geteuid();
    return uid != 0 && uid != own;
}

bool descriptors_are_short(uint32_t uid) {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    // The lowest free number shows how many are in use.
    const int lowest = eventfd(0, EFD_CLOEXEC);
    if (lowest < 0) {
        return true;
    }
    close(lowest);
    const rlim_t kept = is_limited(uid) ? kept_from_users : kept_for_own_work;
    return static_cast<rlim_t>(lowest) + kept >= limit.rlim_cur;
}

void UserLimits::limit_descriptors() {
    const Limit limit = descriptor_limit();
    const ipc_client_limits client_limits = {.one_user = static_cast<uint32_t>(limit.of_one_user),
                                             .all_users = static_cast<uint32_t>(limit.of_all_users),
                                             .kept = kept_from_connections,
                                             .kept_from_users = kept_from_connections_of_users,
                                             .refused =
                                                 [](int32_t pid, uint32_t uid, void *self) {
                                                     static_cast<const UserLimits *>(self)->log(
                                                         descriptor_limit(), pid, uid);
                                                 },
                                             .context = this};
    ipc_limit_clients(&client_limits);
}

UserLimits::Amounts UserLimits::waiting(size_t bytes) {
    Amounts amounts = {};
    amounts[static_cast<size_t>(Limited::waiting_requests)] = 1;
    amounts[static_cast<size_t>(Limited::waiting_bytes)] = static_cast<int64_t>(bytes);
    return amounts;
}

bool UserLimits::take_open(const Client &client) {
    MutexLock lock(mutex_);
    int64_t &opens = opens_[client.connection];
    Amounts wanted = {};
    wanted[static_cast<size_t>(Limited::connections)] = opens == 0 ? 1 : 0;
    wanted[static_cast<size_t>(Limited::opens)] = 1;
    bool first = false;
    const std::optional<Limited> refused = take(client, wanted, first);
    if (!refused) {
        ++opens;
        return true;
    }
    if (opens == 0) {
        opens_.erase(client.connection);
    }
    lock.unlock();
    if (first) {
        log(limit_of(*refused), client.pid, client.uid);
    }
    return false;
}

void UserLimits::give_open(const Client &client) noexcept {
    const MutexLock guard(mutex_);
    const auto opens = opens_.find(client.connection);
    const bool last = opens != opens_.end() && --opens->second == 0;
    if (last) {
        opens_.erase(opens);
    }
    Amounts given = {};
    given[static_cast<size_t>(Limited::connections)] = last ? 1 : 0;
    given[static_cast<size_t>(Limited::opens)] = 1;
    give(client, given);
}

bool UserLimits::take_waiting(const Client &client, size_t bytes) {
    MutexLock lock(mutex_);
    bool first = false;
    const std::optional<Limited> refused = take(client, waiting(bytes), first);
    lock.unlock();
    if (refused && first) {
        log(limit_of(*refused), client.pid, client.uid);
    }
    return !refused;
}

void UserLimits::give_waiting(const Client &client, size_t bytes) noexcept {
    const MutexLock guard(mutex_);
    give(client, waiting(bytes));
}

void UserLimits::sessions_refused(const Client &client) {
    bool first = false;
    {
        const MutexLock guard(mutex_);
        // Absent if the client's connection has ended.
        const auto user = users_.find(client.uid);
        first = user != users_.end() && !std::exchange(user->second.sessions_logged, true);
    }
    if (first) {
        log(is_limited(client.uid) ? session_limit : whole_session_limit, client.pid, client.uid);
    }
}

std::optional<Limited> UserLimits::take(const Client &client, const Amounts &wanted, bool &first) {
    User &user = users_[client.uid];
    const bool limited = is_limited(client.uid);
    for (size_t i = 0; limited && i < limited_count; ++i) {
        if (wanted[i] > 0 && (user.has[i] + wanted[i] > limits[i].of_one_user ||
                              all_[i] + wanted[i] > limits[i].of_all_users)) {
            first = !std::exchange(user.logged[i], true);
            return static_cast<Limited>(i);
        }
    }
    for (size_t i = 0; i < limited_count; ++i) {
        user.has[i] += wanted[i];
        all_[i] += limited ? wanted[i] : 0;
    }
    return std::nullopt;
}

void UserLimits::give(const Client &client, const Amounts &given) noexcept {
    const auto user = users_.find(client.uid);
    if (user == users_.end()) {
        return;
    }
    const bool limited = is_limited(client.uid);
    for (size_t i = 0; i < limited_count; ++i) {
        user->second.has[i] -= given[i];
        all_[i] -= limited ? given[i] : 0;
    }
    if (user->second.has == Amounts{}) {
        users_.erase(user);
    }
}

void UserLimits::log(const Limit &limit, int32_t pid, uint32_t uid) const {
    log_(fmt::format(
        "limit reached: no more {} for user {} ({} for one user, {} for all), asked for "
        "by process {} ({})",
        limit.name, uid, limit.of_one_user, limit.of_all_users, pid, name_of_process(pid)));
}

} // namespace vantro::service::requests
