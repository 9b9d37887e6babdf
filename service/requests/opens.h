// Which player each open record of the service has open.
//
// Several threads may carry requests of one connection at once, and its close may come between
// them; so a request that is still under way may write to a slot whose record is being closed.
// That is why a slot is cleared when its record is made as well as when it is closed.
#ifndef VANTRO_SERVICE_REQUESTS_OPENS_H
#define VANTRO_SERVICE_REQUESTS_OPENS_H

#include <cstdint>
#include <mutex>
#include <vector>

namespace vantro::service::requests {

inline constexpr int16_t no_player = -1;

class Opens {
  public:
    // Clears the slot of a record, and makes it where it is new. Throws std::bad_alloc.
    void reset(int32_t index);

    // The same for a record that goes away; never fails.
    void forget(int32_t index) noexcept;

    // The player that the record has open, or no_player.
    int16_t player(int32_t index) noexcept;

    // Notes that the record opens `player`. Returns 0, also where it is open already, or EBUSY
    // where another one is.
    int open(int32_t index, int16_t player) noexcept;

    // Returns 0, or ENOTCONN where the record does not have that player open.
    int close(int32_t index, int16_t player) noexcept;

  private:
    int16_t *slot(int32_t index) noexcept;

    std::mutex mutex_;
    std::vector<int16_t> players_; // guarded by mutex_; by index of the open record
};

} // namespace vantro::service::requests

#endif
