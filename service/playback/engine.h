// One player: a queue of tracks, what is played of it, and where.
//
// There is no timer. What has happened since the last call is worked out from the clock at the
// next one, over as many ends of tracks as fell in between; that costs at most two walks through
// the queue, however long the gap was. So a player that nobody asks costs nothing.
//
// The queue is played in an order of its own: as it stands, or, with shuffle, a permutation in
// which every track comes once. next() and previous() walk that order, so that previous() always
// goes back the way it came.
//
// Inside, positions and durations are whole microseconds: fractions would gather errors over ends of
// tracks, and show a position one millisecond early.
//
// Any thread may call any operation. The lock is held for arithmetic only.
#ifndef VANTRO_SERVICE_PLAYBACK_ENGINE_H
#define VANTRO_SERVICE_PLAYBACK_ENGINE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <random>
#include <vector>

#include <vantro/player.h>

#include "service/catalogue/track.h"

namespace vantro {

// Further into a track than this, previous() restarts it instead of leaving it.
inline constexpr int32_t restart_after_ms = 3000;

// Fastest playback. Faster is no longer playing; the bound also keeps a position reached
// over any number of years exact.
inline constexpr float rate_max = 16.0f;

class Engine {
  public:
    // Tells the time since any fixed moment; never goes back.
    using Clock = std::function<std::chrono::nanoseconds()>;

    struct Snapshot {
        VantroStateInfo modes;
        int32_t index;       // of the current track within the queue; -1 when the queue is empty
        int32_t position_ms; // from the start of that track
    };

    // Borrows the tracks, which outlive the engine and do not change. `seed` decides the shuffles.
    Engine(const std::vector<Track> &tracks, Clock clock, uint32_t seed);

    // Each returns 0 or the error number with which it refused: ENODATA for an empty queue, ERANGE
    // for an argument that is out of range. A refused command changes nothing.
    int play();
    int pause();
    int stop();
    int next();
    int previous();
    int seek(int32_t position_ms);
    int set_rate(float rate);
    int set_shuffle(int32_t mode);
    int set_repeat(int32_t mode);

    Snapshot snapshot();

  private:
    bool playing() const { return modes_.state == VANTRO_STATE_PLAYING; }
    int64_t duration() const;
    int64_t position(std::chrono::nanoseconds now) const;
    std::chrono::nanoseconds catch_up();
    void place_at(int64_t position, std::chrono::nanoseconds now);
    void end_of_queue();
    void reorder();

    const std::vector<Track> &tracks_;
    const Clock clock_;
    int64_t total_ = 0; // duration of the whole queue

    std::mutex mutex_; // guards all that follows
    std::minstd_rand random_;
    VantroStateInfo modes_;
    std::vector<int32_t> order_;            // indices of the queue, in the order of play
    std::size_t place_ = 0;                 // of the current track, in order_
    int64_t base_ = 0;                      // position in the current track at the time base_time_;
    std::chrono::nanoseconds base_time_{0}; // it moves on from there only while playing
};

} // namespace vantro

#endif
