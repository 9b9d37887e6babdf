// Counts the bytes of answers that this process holds for the clients of one user, and of all users
// together.
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
    uint32_t uid; // for a connection that has vanished, a number that no user has
    int32_t pid;
};

// The user for whom an answer of that open is held. Call it with the server lock held, or in the
// thread that handles the open.
Holder holder_of(const MsgOsb &open);

enum class Taken { yes, no, no_for_the_first_time };

// Counts bytes for that user, if they are within the limits and there is memory for the count.
Taken take_held_bytes(const Holder &holder, int64_t bytes) noexcept;
void give_held_bytes(const Holder &holder, int64_t bytes) noexcept;

// Logs that a limit refused something. Call it without the server lock.
void log_held_limit(const Holder &holder);

} // namespace vantro::transport

#endif
