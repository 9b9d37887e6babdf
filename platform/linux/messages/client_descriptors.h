// Limits for the descriptors of this process that its clients use.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_CLIENT_DESCRIPTORS_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_CLIENT_DESCRIPTORS_H

#include <cstdint>
#include <unordered_map>

#include <vantro/platform/message.h>

namespace vantro::platform {

// The call that reports a refusal, if there is one. Make it without a lock.
struct ClientRefusal {
    void (*refused)(int32_t pid, uint32_t uid, void *context) = nullptr;
    void *context = nullptr;
    int32_t pid = 0;
    uint32_t uid = 0;

    void tell() const {
        if (refused) {
            refused(pid, uid, context);
        }
    }
};

// Counts the descriptors by user. The caller holds the server's lock.
class ClientDescriptors {
  public:
    // Descriptors of a client's socket; a lane also has a memory file, for long messages.
    static constexpr int64_t of_socket = 1;
    static constexpr int64_t of_lane = 2;

    void limit(const struct ipc_client_limits &limits) { limits_ = limits; }

    // Counts `count` descriptors for a client of that user, if they are within the limits and
    // `newest`, a descriptor just made, leaves the required number free. May throw std::bad_alloc
    // for a user without descriptors.
    // @param refusal receives the call that reports a refusal.
    bool take(int32_t pid, uint32_t uid, int64_t count, int newest, ClientRefusal &refusal);
    void give(uint32_t uid, int64_t count);
    void clear() {
        users_.clear();
        all_ = 0;
    }

  private:
    struct User {
        int64_t has = 0;
        bool told = false; // whether a limit reached was reported
    };

    bool is_within(const User &user, bool is_limited, int64_t count, int newest) const;

    struct ipc_client_limits limits_ = {UINT32_MAX, UINT32_MAX, 0, 0, nullptr, nullptr};
    std::unordered_map<uint32_t, User> users_;
    int64_t all_ = 0; // of users that are limited
};

} // namespace vantro::platform

#endif
