#include "transport/server/refusals.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <new>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <vantro/platform/log.h>

#include "common/locks.h"

namespace vantro::transport {

namespace {

constexpr uint32_t log_code = 0x06B02710; // the library's

constexpr auto pause = std::chrono::minutes(1);

// More users than a machine has; any further ones share one entry.
constexpr size_t users_max = 256;
constexpr uint32_t all_others = UINT32_MAX; // no user has this number

struct User {
    std::chrono::steady_clock::time_point next = std::chrono::steady_clock::time_point::min();
    int64_t unsaid = 0;
};

// Never destroyed, since threads may still serve while the process ends.
struct Users {
    Mutex mutex;
    std::map<uint32_t, User> each GUARDED_BY(mutex);
};

Users &users() {
    static Users *const the_users = new Users;
    return *the_users;
}

} // namespace

Refusal::Refusal(const ipc_credentials &client, const char *service_name) noexcept
    : client_(client), service_name_(service_name) {
    try {
        Users &all = users();
        const auto now = std::chrono::steady_clock::now();
        const MutexLock guard(all.mutex);
        const bool known = all.each.count(client.uid) != 0 || all.each.size() < users_max;
        User &user = all.each[known ? client.uid : all_others];
        due_ = user.next <= now;
        if (due_) {
            user.next = now + pause;
            unsaid_ = std::exchange(user.unsaid, 0);
        } else {
            ++user.unsaid;
        }
    } catch (const std::bad_alloc &) {
        // Without memory there is no line.
    }
}

void Refusal::add(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const size_t room = sizeof missing_ - length_;
    const int length = std::vsnprintf(missing_ + length_, room, format, arguments);
    va_end(arguments);
    length_ += std::min(static_cast<size_t>(std::max(length, 0)), room - 1);
}

void Refusal::log() const {
    if (!due_) {
        return;
    }
    char name[32];
    name_of_process(client_.pid, name);
    char before[64] = "";
    if (unsaid_ > 0) {
        std::snprintf(before, sizeof before, "; %lld more refusals since the last such line",
                      static_cast<long long>(unsaid_));
    }
    system_log(log_code, LOG_SEVERITY_WARNING,
               "refused: process %d (%s) of user %u, group %u may not open \"%s\": %s%s",
               client_.pid, name, client_.uid, client_.gid, service_name_, missing_, before);
}

void name_of_process(int32_t pid, char (&name)[32]) {
    std::snprintf(name, sizeof name, "/proc/%d/comm", pid);
    const int file = ::open(name, O_RDONLY | O_CLOEXEC);
    const ssize_t length = file >= 0 ? ::read(file, name, sizeof name - 1) : 0;
    if (file >= 0) {
        ::close(file);
    }
    char *const end = name + std::max<ssize_t>(length, 0);
    *std::find(name, end, '\n') = '\0';
    std::replace_if(
        name, std::find(name, end, '\0'), [](char c) { return c < ' ' || c > '~'; }, '?');
}

} // namespace vantro::transport
