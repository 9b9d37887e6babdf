// The service's data for each open record: the client, and the player that it has open.
//
// Several threads may carry out requests of one connection at the same time, and its close may come
// between them; so a request in progress may write to a slot whose record is being closed.
// Therefore a slot is cleared both when its record is made and when the record is closed.
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
    // Clears the slot of a record, or makes the slot, and stores the client; assigns the client's
    // number. Throws std::bad_alloc.
    void reset(int32_t index, Client client = {}) EXCLUDES(mutex_);

    // Clears the slot of a closed record; never fails. Returns the record's client, unless the slot
    // was cleared before.
    std::optional<Client> forget(int32_t index) noexcept EXCLUDES(mutex_);

    // The record's client; number 0 if the record is not open.
    Client client(int32_t index) noexcept EXCLUDES(mutex_);

    // The player that the record has open, or no_player.
    int16_t player(int32_t index) noexcept EXCLUDES(mutex_);

    // Stores that the record opens `player`. Returns 0, also if it is open already, or EBUSY if
    // another one is open.
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
