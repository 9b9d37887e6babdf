// What one player plays: a track session, which song of it, and where.
//
// There is no timer. What has happened since the last call is worked out from the clock at the
// next one, over as many ends of tracks as fell in between; that costs at most two walks through
// the session, however long the gap was. So a player that nobody asks costs nothing.
//
// A session is played in an order: as it stands, or, with shuffle, a permutation in which every
// song comes once. next() and previous() walk that order, so that previous() always goes back the
// way it came.
//
// The player is idle exactly while it has no session. Inside, positions are whole microseconds.
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

#include "service/playback/session.h"

namespace vantro {

// Further into a track than this, previous() restarts it instead of leaving it.
inline constexpr int32_t restart_after_ms = 3000;

// Fastest playback. Faster is no longer playing; the bound also keeps a position reached
// over any number of years exact.
inline constexpr float rate_max = 16.0f;

// In place of an index: the first song in the order of play.
inline constexpr int32_t any_index = -1;

class Engine {
  public:
    // Tells the time since any fixed moment; never goes back.
    using Clock = std::function<std::chrono::nanoseconds()>;

    struct Snapshot {
        VantroStateInfo modes;
        SessionPtr session;      // null while idle
        int32_t index = 0;       // of the current song within the session
        int32_t position_ms = 0; // from the start of that song
    };

    // `seed` decides the shuffles.
    Engine(Clock clock, uint32_t seed);

    // Makes a session the current one, at the start of that song: playing, or else paused. The
    // index is one of the session's, or any_index.
    void load(SessionPtr session, int32_t index, bool play);
    // Drops the session if it is the current one; the player is then idle.
    void unload(uint64_t tsid);

    // Each returns 0 or the error number with which it refused: ENODATA where there is no session,
    // ERANGE for an argument that is out of range. A refused command changes nothing.
    int play();
    int pause();
    int stop();
    int next();
    int previous();
    int jump(int32_t index);
    int seek(int32_t position_ms);
    int set_rate(float rate);
    int set_shuffle(int32_t mode);
    int set_repeat(int32_t mode);

    Snapshot snapshot();

  private:
    bool playing() const { return modes_.state == VANTRO_STATE_PLAYING; }
    int32_t index() const;
    int64_t duration() const;
    int64_t position(std::chrono::nanoseconds now) const;
    std::chrono::nanoseconds catch_up();
    void place_at(int64_t position, std::chrono::nanoseconds now);
    void end_of_session();
    std::vector<int32_t> draw_order(const TrackSession &session, int32_t first);

    const Clock clock_;

    std::mutex mutex_; // guards all that follows
    std::minstd_rand random_;
    VantroStateInfo modes_;
    SessionPtr session_;
    std::vector<int32_t> order_; // with shuffle: indices of the session in the order of play
    int32_t place_ = 0;          // of the current song in the order of play
    int64_t base_ = 0;           // position in that song at the time base_time_;
    std::chrono::nanoseconds base_time_{0}; // it moves on from there only while playing
};

} // namespace vantro

#endif
