#include "platform/linux/messages/client_descriptors.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/linux/messages/server.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

namespace {

bool is_limited_user(uint32_t uid) {
    return uid != 0 && uid != ::geteuid();
}

} // namespace

bool ClientDescriptors::is_within(const User &user, bool is_limited, int64_t count,
                                  int newest) const {
    if (is_limited && (user.has + count > limits_.one_user || all_ + count > limits_.all_users)) {
        return false;
    }
    const uint32_t kept = is_limited ? limits_.kept_from_users : limits_.kept;
    struct rlimit open_files;
    // The kernel returns the lowest free number, so the newest one shows how many are in use.
    return kept == 0 || ::getrlimit(RLIMIT_NOFILE, &open_files) != 0 ||
           static_cast<rlim_t>(newest) + kept < open_files.rlim_cur;
}

bool ClientDescriptors::take(int32_t pid, uint32_t uid, int64_t count, int newest,
                             ClientRefusal &refusal) {
    const bool is_limited = is_limited_user(uid);
    User &user = users_[uid];
    if (is_within(user, is_limited, count, newest)) {
        user.has += count;
        all_ += is_limited ? count : 0;
        return true;
    }
    if (!std::exchange(user.told, true)) {
        refusal = {limits_.refused, limits_.context, pid, uid};
    }
    return false;
}

void ClientDescriptors::give(uint32_t uid, int64_t count) {
    const auto user = users_.find(uid);
    if (user == users_.end()) {
        return;
    }
    user->second.has -= count;
    all_ -= is_limited_user(uid) ? count : 0;
    if (user->second.has == 0) {
        users_.erase(user);
    }
}

} // namespace vantro::platform

int ipc_limit_clients(const struct ipc_client_limits *limits) {
    using namespace vantro::platform;
    if (!limits || limits->one_user == 0 || limits->all_users == 0) {
        return fail(EINVAL);
    }
    const vantro::MutexLock guard(server_lock);
    Server::instance().descriptors.limit(*limits);
    return 0;
}
