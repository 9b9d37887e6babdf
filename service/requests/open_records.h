// What the service keeps for each of its open records: who opened it, and which player it has open.
//
// Several threads may carry requests of one connection at once, and its close may come between
// them; so a request that is still under way may write to a slot whose record is being closed.
// That is why a slot is cleared when its record is made as well as when it is closed.
#ifndef VANTRO_SERVICE_REQUESTS_OPEN_RECORDS_H
#define VANTRO_SERVICE_REQUESTS_OPEN_RECORDS_H

#include <cstdint>
#include <optional>
#include <vector>

#include "common/locks.h"
#include "service/requests/user_limits.h"

namespace vantro::service::requests {

inline constexpr int16_t no_player = -1;

class OpenRecords {
  public:
    // Clears the slot of a record, makes it where it is new, and notes whose it is; its number is
    // given here. Throws std::bad_alloc.
    void reset(int32_t index, Client client = {}) EXCLUDES(mutex_);

    // Clears the slot of a record that goes away; never fails. Returns whose it was, unless it was
    // cleared before.
    std::optional<Client> forget(int32_t index) noexcept EXCLUDES(mutex_);

    // Whose the record is; nobody's if it is not open.
    Client client(int32_t index) noexcept EXCLUDES(mutex_);

    // The player that the record has open, or no_player.
    int16_t player(int32_t index) noexcept EXCLUDES(mutex_);

    // Notes that the record opens `player`. Returns 0, also where it is open already, or EBUSY
    // where another one is.
    int open(int32_t index, int16_t player) noexcept EXCLUDES(mutex_);

    // Returns 0, or ENOTCONN if the record does not have that player open.
    int close(int32_t index, int16_t player) noexcept EXCLUDES(mutex_);

  private:
    struct Slot {
        int16_t player = no_player;
        std::optional<Client> client;
    };
    Slot *slot(int32_t index) noexcept REQUIRES(mutex_);

    Mutex mutex_;
    std::vector<Slot> slots_ GUARDED_BY(mutex_); // by index of the open record
    uint64_t last_number_ GUARDED_BY(mutex_) = 0;
};

} // namespace vantro::service::requests

#endif
