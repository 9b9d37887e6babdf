// The state of one player: the track session, the current song, and the position.
//
// The engine has no timer. Each call first computes from the clock what has happened since the last
// call, including any number of ends of tracks; that costs at most two passes over the session,
// however long the gap was. wake() returns the time of the next event that no command causes.
//
// Every change is recorded for the publisher, in order and with the state after it.
//
// Another thread checks whether a track's file can be played, since it may wait for a disk:
// take_start() hands out each start of a track, and checked() takes the result. Until then the
// track plays.
//
// A session is played in its own order, or, with shuffle, in a permutation in which every song
// comes once. next() and previous() follow that order, so that previous() returns to the song that
// was played before.
//
// If there is a sound (service/sound/sound.h), the clock only bridges the time between two of its
// reports: the position does not move before the track is heard, a track ends when the sound
// reports it, and a report corrects the computed position. wanted() is the state that the sound
// must apply.
//
// The player is idle if and only if it has no session. Internally, positions are whole
// microseconds.
//
// Any thread may call any operation. The lock is held for computations only.
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

// Fastest playback. The bound also keeps a position exact that was reached over any number of
// years.
inline constexpr float rate_max = 16.0f;

// The volume at which samples are unchanged.
inline constexpr int32_t volume_max = 100;

// A player stops after this many unplayable tracks in a row. That many indicate a missing disk
// rather than damaged files, and followers of the player should not get a flood of events.
inline constexpr int32_t failures_max = 100;

// How often the position is published while playing.
inline constexpr std::chrono::seconds tick_every{1};

// Shortest time from the start of a track to the event of its end: the ends of tracks of a
// millisecond that repeat are published together.
inline constexpr std::chrono::milliseconds end_after{10};

// A position that a sound reports replaces the computed one only if they differ by more than this.
// Smaller differences come from the reports themselves, and would make positions go backwards while
// playing.
inline constexpr std::chrono::milliseconds jitter{50};

// Stands for the first song in the order of play.
inline constexpr int32_t any_index = -1;

class Engine {
  public:
    // Returns the time since an arbitrary fixed moment; never goes backwards.
    using Clock = std::function<std::chrono::nanoseconds()>;

    struct Snapshot {
        VantroStateInfo modes;
        VantroVolume volume;
        SessionPtr session;      // null while idle
        int32_t index = 0;       // of the current song within the session
        int32_t position_ms = 0; // from the start of that song
    };

    // The complete state of a player, for saving it over a restart.
    struct Saved {
        VantroStateInfo modes = {VANTRO_STATE_IDLE, 1.0f, VANTRO_REPEAT_OFF, VANTRO_SHUFFLE_OFF};
        VantroVolume volume = {volume_max, 0};
        SessionPtr session;         // null while idle
        std::vector<int32_t> order; // with shuffle: indices of the session in the order of play
        int32_t place = 0;          // of the current song in the order of play
        int64_t position_us = 0;
    };

    struct Change {
        // The changed parts; `tick` if only time has passed.
        enum : unsigned { state = 1, session = 2, track = 4, position = 8, tick = 16, volume = 32 };
        unsigned what = 0;
        int32_t error = 0; // with `state`: the VANTRO_ERROR_* that stopped the player, or 0
        Snapshot now;
    };

    // One start of a track.
    struct Start {
        uint64_t number;
        catalogue::SongId song;
    };

    // `seed` determines the shuffles. If `sounding` is true, a sound reports what is heard.
    Engine(Clock clock, uint32_t seed, bool sounding = false);

    // Makes a session the current one, at the start of the song `index`: playing, or else paused.
    // The index is valid in the session, or any_index.
    void load(SessionPtr session, int32_t index, bool play) EXCLUDES(mutex_);
    // Replaces the session of `from` by another one, and plays on without a gap or a jump. The new
    // session has the same songs, and further ones after the current song (`next`) or after all
    // songs. Returns false if the player has gone on since `from`; then nothing has changed.
    bool extend(const Snapshot &from, SessionPtr session, bool next) EXCLUDES(mutex_);
    // The same with a session of any songs, at the song `index`. If that is the current song, the
    // position is kept, else the song begins at its start. The state does not change.
    bool keep(const Snapshot &from, SessionPtr session, int32_t index) EXCLUDES(mutex_);
    // Drops the session if it is the current one; the player is then idle.
    void unload(uint64_t tsid) EXCLUDES(mutex_);

    // Each returns 0, or an error number if it refuses: ENODATA if there is no session, ERANGE if
    // an argument is out of range. A refused command changes nothing.
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
    // If a level above the limit is set or restored, the limit applies instead. If the present
    // level is above the limit, it is lowered; it stays there when the limit is raised.
    void set_volume_limit(int32_t limit) EXCLUDES(mutex_);

    Snapshot snapshot() EXCLUDES(mutex_);

    Saved saved() EXCLUDES(mutex_);
    // Restores a saved state; a player that was playing is paused unless `play`. The saved state
    // must be consistent: its place is in its session, and its order has each index once.
    void restore(const Saved &saved, bool play) EXCLUDES(mutex_);

    // The number of changes recorded so far. Does not take the lock.
    uint64_t changes() const { return noted_count_.load(std::memory_order_acquire); }
    // The oldest change that was not dropped yet; false if there is none.
    bool first_change(Change &change) EXCLUDES(mutex_);
    void drop_change() EXCLUDES(mutex_);

    // Handles everything that is due. Returns the time until something is due next; nothing while
    // the player does not play.
    std::optional<std::chrono::nanoseconds> wake() EXCLUDES(mutex_);

    // The result that wake() would return, without doing anything.
    std::optional<std::chrono::nanoseconds> next_wake() EXCLUDES(mutex_);

    // Whether take_start() would return a start.
    bool has_start() EXCLUDES(mutex_);

    // The newest track start whose file has not been handed out for checking; empty if there is
    // none or the player has moved on.
    std::optional<Start> take_start() EXCLUDES(mutex_);
    // Takes the result of a check: 0, or the VANTRO_ERROR_* with which the player stops and then
    // continues with the next track, if there is one. The result of a start that is over is
    // ignored.
    void checked(uint64_t number, int32_t error) EXCLUDES(mutex_);

    // A source has gone: if the player plays a song of it, the player stops with VANTRO_ERROR_GONE.
    void source_gone(int32_t source) EXCLUDES(mutex_);

    // For the sound; see sound::Listener.
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
    // The changes that were not dropped yet, oldest first.
    std::vector<Change> changes_ GUARDED_BY(mutex_);
    VantroStateInfo noted_ GUARDED_BY(mutex_); // the modes in the last change
    std::atomic<uint64_t> noted_count_ = 0;    // written with the lock held
    uint64_t start_ GUARDED_BY(mutex_) = 0;    // number of the last start
    bool start_taken_ GUARDED_BY(mutex_) = true;
    // Unplayable tracks in a row since a playable one or a command.
    int32_t failures_ GUARDED_BY(mutex_) = 0;

    bool sounding_ GUARDED_BY(mutex_);            // whether a sound reports what is heard
    bool heard_ GUARDED_BY(mutex_) = false;       // the cue has started
    uint64_t last_cue_ GUARDED_BY(mutex_) = 0;    // the last number that was used
    uint64_t cue_ GUARDED_BY(mutex_) = 0;         // of the current position; 0 while idle
    int64_t cue_position_ GUARDED_BY(mutex_) = 0; // where the cue begins
    // The following cue that wanted() returned to the sound, 0 for none; its place in the order of
    // play, and its song.
    uint64_t following_cue_ GUARDED_BY(mutex_) = 0;
    int32_t following_place_ GUARDED_BY(mutex_) = 0;
    catalogue::SongId following_song_ GUARDED_BY(mutex_) = 0;
};

} // namespace vantro::service::playback

#endif
