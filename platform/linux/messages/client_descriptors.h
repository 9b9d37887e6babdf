// What the clients of this process may take of its descriptors.
#ifndef VANTRO_PLATFORM_LINUX_MESSAGES_CLIENT_DESCRIPTORS_H
#define VANTRO_PLATFORM_LINUX_MESSAGES_CLIENT_DESCRIPTORS_H

#include <cstdint>
#include <unordered_map>

#include <vantro/platform/message.h>

namespace vantro::platform {

// To be called without a lock, where it is to be called at all.
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

// Counts them by user. Its caller holds the server's lock.
class ClientDescriptors {
  public:
    // A socket of a client; a lane has a memory file too, for long messages.
    static constexpr int64_t of_socket = 1;
    static constexpr int64_t of_lane = 2;

    void limit(const struct ipc_client_limits &limits) { limits_ = limits; }

    // Counts so many for a client of that user, where they are within the limits, and where
    // `newest`, a descriptor that was just made, leaves the free ones that are kept back. Throws
    // std::bad_alloc for a user that has none yet.
    // @param refusal receives whom to tell of it.
    bool take(int32_t pid, uint32_t uid, int64_t count, int newest, ClientRefusal &refusal);
    void give(uint32_t uid, int64_t count);
    void clear() {
        users_.clear();
        all_ = 0;
    }

  private:
    struct User {
        int64_t has = 0;
        bool told = false; // that a limit was reached
    };

    bool is_within(const User &user, bool is_limited, int64_t count, int newest) const;

    struct ipc_client_limits limits_ = {UINT32_MAX, UINT32_MAX, 0, 0, nullptr, nullptr};
    std::unordered_map<uint32_t, User> users_;
    int64_t all_ = 0; // of users that are limited
};

} // namespace vantro::platform

#endif
