// A scheduler for work that may take long: a few pieces run at a time, and clients take turns.
//
// Each piece has a number, one above that of its client's last piece, but not below that of the
// piece that was started last. The lowest number goes first. So a client with many pieces waits for
// its own pieces, and a client with few does not. If numbers are equal, a client without a piece in
// the last round goes first, so that a new client does not wait for a round of all others.
//
// The scheduler has no thread: a piece that finds no place is left to the next thread that finishes
// one. Any thread may call any operation; no work is done with the lock held.
#ifndef VANTRO_SERVICE_REQUESTS_TURNS_H
#define VANTRO_SERVICE_REQUESTS_TURNS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <tuple>
#include <unordered_map>

#include "common/locks.h"

namespace vantro::service::requests {

class Turns {
  public:
    using Work = std::function<void()>; // does not throw

    // `places` pieces run at the same time.
    explicit Turns(int places) : places_(places) {}

    // Takes a place for a piece of work of that client. Returns false if there is none; the caller
    // then calls leave().
    bool begin(int32_t client) EXCLUDES(mutex_);

    // Queues a piece for its turn. Returns false if a place has become free; the caller then has
    // it. Throws std::bad_alloc.
    bool leave(int32_t client, Work work) EXCLUDES(mutex_);

    // Call it after a started piece: does waiting work, if there is any, and releases the place.
    void finish() EXCLUDES(mutex_);

    // A client has gone: the next client with its id is a new one.
    void forget(int32_t client) noexcept EXCLUDES(mutex_);

    // Drops the waiting pieces, and those queued from now on.
    void stop() EXCLUDES(mutex_);

  private:
    // Number; whether the client asked during the last round; order of arrival.
    using Place = std::tuple<uint64_t, bool, uint64_t>;

    Place next_place(int32_t client) REQUIRES(mutex_);
    void forget_rested() REQUIRES(mutex_);

    const int places_;
    Mutex mutex_;
    int taken_ GUARDED_BY(mutex_) = 0;
    bool stopped_ GUARDED_BY(mutex_) = false;
    uint64_t round_ GUARDED_BY(mutex_) = 1; // the number of the piece that was started last
    uint64_t arrivals_ GUARDED_BY(mutex_) = 0;
    std::map<Place, Work> waiting_ GUARDED_BY(mutex_); // empty while a place is free
    // The number of each client's last piece; a missing client had none lately.
    std::unordered_map<int32_t, uint64_t> last_ GUARDED_BY(mutex_);
    size_t forget_at_ GUARDED_BY(mutex_) = 64; // clients in last_
};

} // namespace vantro::service::requests

#endif
