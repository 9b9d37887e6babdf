// How many bytes of answers this process holds for clients of one user, and of all users together.
//
// User 0 and the process's own user are not limited. For the others an open's own limits are not
// enough, since one user may have thousands of opens.
#ifndef VANTRO_TRANSPORT_SERVER_HELD_BY_USER_H
#define VANTRO_TRANSPORT_SERVER_HELD_BY_USER_H

#include <cstdint>

#include <vantro/messaging.h>

namespace vantro::transport {

// Enough for the longest answer that a service is likely to give, twice.
inline constexpr int64_t held_bytes_of_one_user = int64_t{128} << 20;
inline constexpr int64_t held_bytes_of_all_users = int64_t{512} << 20;

struct Holder {
    uint32_t uid; // of a connection that has vanished, one that nobody has
    int32_t pid;
};

// Who an answer of that open is held for. With the server lock held, or by the open's own thread.
Holder holder_of(const MsgOsb &open);

enum class Taken { yes, no, no_for_the_first_time };

// Counts bytes for that user, where they are within the limits and there is memory to count.
Taken take_held_bytes(const Holder &holder, int64_t bytes) noexcept;
void give_held_bytes(const Holder &holder, int64_t bytes) noexcept;

// Says in the log that a limit refused something; without the server lock.
void log_held_limit(const Holder &holder);

} // namespace vantro::transport

#endif
