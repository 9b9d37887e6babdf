// What one player plays: the track session, the current song, and the position.
//
// There is no timer here. What has happened since the last call is worked out from the clock at the
// next one, over as many ends of tracks as fell in between; that costs at most two walks through
// the session, however long the gap was. wake() says when something will happen by itself.
//
// Every change is noted for the publisher, in order and with the state after it.
//
// Another thread checks whether a track's file can be played, since it may wait for a disk:
// take_start() hands out each start of a track, and checked() takes the result. Until then the
// track plays.
//
// A session is played in an order: as it stands, or, with shuffle, a permutation in which every
// song comes once. next() and previous() walk that order, so that previous() always goes back the
// way it came.
//
// If there is a sound (service/sound/sound.h) the clock only bridges the time between two of its
// reports: nothing moves before it is heard, a track has ended when the sound says so, and a report
// corrects what was computed. wanted() is what the sound is to do.
//
// The player is idle exactly while it has no session. Inside, positions are whole microseconds.
//
// Any thread may call any operation. The lock is held for arithmetic only.
#ifndef VANTRO_SERVICE_PLAYBACK_ENGINE_H
#define VANTRO_SERVICE_PLAYBACK_ENGINE_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <vector>

#include <vantro/extras.h>
#include <vantro/player.h>

#include "common/locks.h"
#include "service/playback/session.h"
#include "service/sound/sound.h"

namespace vantro::service::playback {

// Further into a track than this, previous() restarts it instead of leaving it.
inline constexpr int32_t restart_after_ms = 3000;

// Fastest playback. Faster is no longer playing; the bound also keeps a position reached
// over any number of years exact.
inline constexpr float rate_max = 16.0f;

// As loud as the music is.
inline constexpr int32_t volume_max = 100;

// A player stops after so many unplayable tracks in a row. That many mean a missing disk rather
// than damaged files, and followers of the player should not get a flood of events.
inline constexpr int32_t failures_max = 100;

// How often the position is published while playing.
inline constexpr std::chrono::seconds tick_every{1};

// Shortest time from the start of a track to the event of its end: the ends of tracks of a
// millisecond that repeat are published together.
inline constexpr std::chrono::milliseconds end_after{10};

// A position that a sound reports is taken where it is further than this from the computed one.
// Smaller differences are the reports' own, and would make positions go back while playing.
inline constexpr std::chrono::milliseconds jitter{50};

// In place of an index: the first song in the order of play.
inline constexpr int32_t any_index = -1;

class Engine {
  public:
    // Tells the time since any fixed moment; never goes back.
    using Clock = std::function<std::chrono::nanoseconds()>;

    struct Snapshot {
        VantroStateInfo modes;
        VantroVolume volume;
        SessionPtr session;      // null while idle
        int32_t index = 0;       // of the current song within the session
        int32_t position_ms = 0; // from the start of that song
    };

    // The whole state of a player, to be kept over a restart.
    struct Saved {
        VantroStateInfo modes = {VANTRO_STATE_IDLE, 1.0f, VANTRO_REPEAT_OFF, VANTRO_SHUFFLE_OFF};
        VantroVolume volume = {volume_max, 0};
        SessionPtr session;         // null while idle
        std::vector<int32_t> order; // with shuffle: indices of the session in the order of play
        int32_t place = 0;          // of the current song in the order of play
        int64_t position_us = 0;
    };

    struct Change {
        // What changed; `tick` if only time has passed.
        enum : unsigned { state = 1, session = 2, track = 4, position = 8, tick = 16, volume = 32 };
        unsigned what = 0;
        int32_t error = 0; // with `state`: the VANTRO_ERROR_* that stopped the player, or 0
        Snapshot now;
    };

    // One time that a track began to play.
    struct Start {
        uint64_t number;
        catalogue::SongId song;
    };

    // `seed` decides the shuffles. Where `sounding`, a sound reports what is heard.
    Engine(Clock clock, uint32_t seed, bool sounding = false);

    // Makes a session the current one, at the start of that song: playing, or else paused. The
    // index is one of the session's, or any_index.
    void load(SessionPtr session, int32_t index, bool play) EXCLUDES(mutex_);
    // Makes a session the current one in place of the one of `from`, and plays on without a gap or
    // a jump. It has the same songs, and others after the current one (`next`) or after all.
    // Returns false if the player has gone on since `from`; then nothing has changed.
    bool extend(const Snapshot &from, SessionPtr session, bool next) EXCLUDES(mutex_);
    // The same with a session of any songs, at one of them. If that is the song that is current,
    // its position is kept, else it is at its start. The state stays.
    bool keep(const Snapshot &from, SessionPtr session, int32_t index) EXCLUDES(mutex_);
    // Drops the session if it is the current one; the player is then idle.
    void unload(uint64_t tsid) EXCLUDES(mutex_);

    // Each returns 0 or the error number with which it refused: ENODATA if there is no session,
    // ERANGE for an argument that is out of range. A refused command changes nothing.
    int play() EXCLUDES(mutex_);
    int pause() EXCLUDES(mutex_);
    int stop() EXCLUDES(mutex_);
    int next() EXCLUDES(mutex_);
    int previous() EXCLUDES(mutex_);
    int jump(int32_t index) EXCLUDES(mutex_);
    int seek(int32_t position_ms) EXCLUDES(mutex_);
    int set_rate(float rate) EXCLUDES(mutex_);
    int set_shuffle(int32_t mode) EXCLUDES(mutex_);
    int set_repeat(int32_t mode) EXCLUDES(mutex_);
    int set_volume(int32_t level) EXCLUDES(mutex_);
    int set_muted(int32_t muted) EXCLUDES(mutex_);
    // A level above the limit is set, or restored, as the limit. If the present level is above it,
    // it comes down; it stays there when the limit is raised.
    void set_volume_limit(int32_t limit) EXCLUDES(mutex_);

    Snapshot snapshot() EXCLUDES(mutex_);

    Saved saved() EXCLUDES(mutex_);
    // Makes the player what it was, except that one that played is paused unless `play`. What was
    // saved is whole: its place is in its session, and its order has each index once.
    void restore(const Saved &saved, bool play) EXCLUDES(mutex_);

    // How many changes were noted so far. Without the lock.
    uint64_t changes() const { return noted_count_.load(std::memory_order_acquire); }
    // The oldest change that was not yet dropped; false if there is none.
    bool first_change(Change &change) EXCLUDES(mutex_);
    void drop_change() EXCLUDES(mutex_);

    // Does what is due by now. Returns how long until the next time that something will be; nothing
    // while the player does not play.
    std::optional<std::chrono::nanoseconds> wake() EXCLUDES(mutex_);

    // The result that wake() would return, without doing anything.
    std::optional<std::chrono::nanoseconds> next_wake() EXCLUDES(mutex_);

    // Whether take_start() has one.
    bool has_start() EXCLUDES(mutex_);

    // The newest track start whose file has not been handed out for checking; empty if there is
    // none or the player has moved on.
    std::optional<Start> take_start() EXCLUDES(mutex_);
    // Takes the result of a check: 0, or the VANTRO_ERROR_* with which the player stops and then
    // goes on with the next track, if there is one. The result of a start that is over is ignored.
    void checked(uint64_t number, int32_t error) EXCLUDES(mutex_);

    // A source has gone: a player that plays a song of it stops there, with VANTRO_ERROR_GONE.
    void source_gone(int32_t source) EXCLUDES(mutex_);

    // For the sound; as sound::Listener has them.
    sound::Wanted wanted() EXCLUDES(mutex_);
    void started(uint64_t cue, int64_t position_us) EXCLUDES(mutex_);
    void reached(uint64_t cue, int64_t position_us) EXCLUDES(mutex_);
    void ended(uint64_t cue) EXCLUDES(mutex_);
    void failed(uint64_t cue, int32_t error) EXCLUDES(mutex_);
    void output_lost() EXCLUDES(mutex_);
    void no_output() EXCLUDES(mutex_);

  private:
    Snapshot at(std::chrono::nanoseconds now) const REQUIRES(mutex_);
    void note(unsigned what, std::chrono::nanoseconds now, int32_t error = 0) REQUIRES(mutex_);
    void track_started() REQUIRES(mutex_);
    void track_started_by_choice() REQUIRES(mutex_);
    bool playing() const REQUIRES(mutex_) { return modes_.state == VANTRO_STATE_PLAYING; }
    int32_t index() const REQUIRES(mutex_);
    int64_t duration() const REQUIRES(mutex_);
    int64_t position(std::chrono::nanoseconds now) const REQUIRES(mutex_);
    std::chrono::nanoseconds catch_up() REQUIRES(mutex_);
    std::optional<std::chrono::nanoseconds> time_to_wake(std::chrono::nanoseconds now) const
        REQUIRES(mutex_);
    void place_at(int64_t position, std::chrono::nanoseconds now) REQUIRES(mutex_);
    void jump_to(int64_t position, std::chrono::nanoseconds now) REQUIRES(mutex_);
    void stop_with(int32_t error, std::chrono::nanoseconds now) REQUIRES(mutex_);
    void pass_over(int32_t error, std::chrono::nanoseconds now) REQUIRES(mutex_);
    void end_of_session() REQUIRES(mutex_);
    std::optional<int32_t> following_place() const REQUIRES(mutex_);
    catalogue::SongId song_at(int32_t place) const REQUIRES(mutex_);
    bool is_current(uint64_t cue) const REQUIRES(mutex_) { return cue != 0 && cue == cue_; }
    bool is_following(uint64_t cue) const REQUIRES(mutex_);
    void follow(uint64_t cue, std::chrono::nanoseconds now) REQUIRES(mutex_);
    std::vector<int32_t> draw_order(const TrackSession &session, int32_t first) REQUIRES(mutex_);

    const Clock clock_;

    Mutex mutex_;
    std::minstd_rand random_ GUARDED_BY(mutex_);
    VantroStateInfo modes_ GUARDED_BY(mutex_);
    VantroVolume volume_ GUARDED_BY(mutex_){volume_max, 0};
    int32_t volume_limit_ GUARDED_BY(mutex_) = volume_max;
    SessionPtr session_ GUARDED_BY(mutex_);
    // With shuffle: indices of the session in the order of play.
    std::vector<int32_t> order_ GUARDED_BY(mutex_);
    // Of the current song in the order of play.
    int32_t place_ GUARDED_BY(mutex_) = 0;
    // The position in that song at the time base_time_. It moves on from there only while playing.
    int64_t base_ GUARDED_BY(mutex_) = 0;
    std::chrono::nanoseconds base_time_ GUARDED_BY(mutex_){0};
    std::chrono::nanoseconds next_tick_ GUARDED_BY(mutex_){0}; // only while playing
    // Oldest first; those that were not yet dropped.
    std::vector<Change> changes_ GUARDED_BY(mutex_);
    VantroStateInfo noted_ GUARDED_BY(mutex_); // as the last change has it
    std::atomic<uint64_t> noted_count_ = 0;    // written with the lock held
    uint64_t start_ GUARDED_BY(mutex_) = 0;    // number of the last start
    bool start_taken_ GUARDED_BY(mutex_) = true;
    // Unplayable tracks in a row since a playable one or a command.
    int32_t failures_ GUARDED_BY(mutex_) = 0;

    bool sounding_ GUARDED_BY(mutex_);            // a sound reports what is heard
    bool heard_ GUARDED_BY(mutex_) = false;       // the cue has started
    uint64_t last_cue_ GUARDED_BY(mutex_) = 0;    // that was given a number
    uint64_t cue_ GUARDED_BY(mutex_) = 0;         // of what is current; 0 while idle
    int64_t cue_position_ GUARDED_BY(mutex_) = 0; // where it begins
    // The cue that the sound was told to go on with, 0 for none; its place in the order of play,
    // and its song.
    uint64_t following_cue_ GUARDED_BY(mutex_) = 0;
    int32_t following_place_ GUARDED_BY(mutex_) = 0;
    catalogue::SongId following_song_ GUARDED_BY(mutex_) = 0;
};

} // namespace vantro::service::playback

#endif
