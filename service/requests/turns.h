// Whose turn it is: work that may take long is done a few pieces at a time, in turns by client.
//
// Each piece has a number, one above that of its client's last piece, but not below that of the
// piece that was begun last. The lowest number goes first. So a client that asks for much at once
// waits for its own pieces, and one that asks for a little does not. Where numbers are equal a
// client that did not ask during the last round goes first, so that a newcomer does not wait for a
// round of all others.
//
// There is no thread of its own: a piece that finds no place is left to whichever thread is done
// with one. Any thread may call any operation; no work is done with the lock held.
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
    using Work = std::function<void()>; // throws nothing

    // That many pieces are done at once.
    explicit Turns(int places) : places_(places) {}

    // Takes a place for a piece of work of that client. Returns false if there is none; the
    // caller then makes ready to leave the piece.
    bool begin(int32_t client) EXCLUDES(mutex_);

    // Leaves a piece for its turn. Returns false if a place has become free, which the caller
    // then has. Throws std::bad_alloc.
    bool leave(int32_t client, Work work) EXCLUDES(mutex_);

    // After a piece that was begun: does what waits, if anything does, and gives the place up.
    void finish() EXCLUDES(mutex_);

    // A client has gone: the next one that has its id is new.
    void forget(int32_t client) noexcept EXCLUDES(mutex_);

    // Drops what waits, and what is left from now on.
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
    uint64_t round_ GUARDED_BY(mutex_) = 1; // the number of the piece that was begun last
    uint64_t arrivals_ GUARDED_BY(mutex_) = 0;
    std::map<Place, Work> waiting_ GUARDED_BY(mutex_); // empty while a place is free
    // By client; one that is missing has rested.
    std::unordered_map<int32_t, uint64_t> last_ GUARDED_BY(mutex_);
    size_t forget_at_ GUARDED_BY(mutex_) = 64; // clients in last_
};

} // namespace vantro::service::requests

#endif
