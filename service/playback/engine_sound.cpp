// The wanted state for the sound, and the sound's reports.
#include "service/playback/engine.h"

#include <algorithm>
#include <cstdlib>

#include <vantro/catalogue.h>

namespace vantro::service::playback {

namespace {

// The most changes that one report records: the start of a track, and a stop with the continuation
// after it.
constexpr size_t notes_max = 3;

constexpr int64_t jitter_us = std::chrono::microseconds(jitter).count();

} // namespace

// The place that follows when the current track ends.
std::optional<int32_t> Engine::following_place() const {
    if (modes_.repeat == VANTRO_REPEAT_ONE) {
        return place_;
    }
    if (place_ + 1 < session_->length()) {
        return place_ + 1;
    }
    return modes_.repeat == VANTRO_REPEAT_ALL ? std::optional<int32_t>(0) : std::nullopt;
}

int64_t Engine::song_at(int32_t place) const {
    const int32_t index = order_.empty() ? place : order_[static_cast<size_t>(place)];
    return session_->songs[static_cast<size_t>(index)].id;
}

sound::Wanted Engine::wanted() {
    const MutexLock guard(mutex_);
    sound::Wanted wanted;
    wanted.rate = modes_.rate;
    wanted.volume = volume_.level;
    wanted.muted = volume_.muted != 0;
    if (!session_ || modes_.state == VANTRO_STATE_STOPPED) {
        return wanted;
    }
    wanted.playing = playing();
    wanted.now = {cue_, song_at(place_), cue_position_};
    const std::optional<int32_t> following = following_place();
    if (!following) {
        following_cue_ = 0;
        return wanted;
    }
    // The same place may have another song by now, if a new order was drawn.
    const int64_t song = song_at(*following);
    if (following_cue_ == 0 || following_place_ != *following || following_song_ != song) {
        following_cue_ = ++last_cue_;
        following_place_ = *following;
        following_song_ = song;
    }
    wanted.next = {following_cue_, song, 0};
    return wanted;
}

// Whether that track follows the current one at present.
bool Engine::is_following(uint64_t cue) const {
    if (cue == 0 || cue != following_cue_ || !session_) {
        return false;
    }
    const std::optional<int32_t> following = following_place();
    return following == following_place_ && song_at(*following) == following_song_;
}

// The current track has ended, and the track of that cue becomes the current one.
void Engine::follow(uint64_t cue, std::chrono::nanoseconds now) {
    place_ = following_place_;
    jump_to(0, now);
    cue_ = cue;
    track_started();
}

void Engine::started(uint64_t cue, int64_t position_us) {
    const MutexLock guard(mutex_);
    if (!is_current(cue) && !is_following(cue)) {
        return;
    }
    changes_.reserve(changes_.size() + notes_max);
    const auto now = clock_();
    const bool follows = cue != cue_;
    if (follows) {
        follow(cue, now);
    }
    failures_ = 0;
    heard_ = true;
    if (playing()) {
        place_at(position_us, now);
    }
    note((follows ? unsigned{Change::track} : 0u) |
             (follows || playing() ? unsigned{Change::position} : 0u),
         now);
}

void Engine::reached(uint64_t cue, int64_t position_us) {
    const MutexLock guard(mutex_);
    const auto now = clock_();
    if (!is_current(cue) || !heard_ || std::abs(position_us - position(now)) <= jitter_us) {
        return;
    }
    changes_.reserve(changes_.size() + notes_max);
    base_ = position_us; // the time of the next tick does not change
    base_time_ = now;
    note(Change::position, now);
}

void Engine::ended(uint64_t cue) {
    const MutexLock guard(mutex_);
    if (!is_current(cue)) {
        return;
    }
    changes_.reserve(changes_.size() + notes_max);
    const auto now = clock_();
    if (const std::optional<int32_t> following = following_place()) {
        place_ = *following;
    } else {
        end_of_session();
    }
    jump_to(0, now);
    track_started();
    note(Change::track | Change::position, now);
}

void Engine::failed(uint64_t cue, int32_t error) {
    const MutexLock guard(mutex_);
    if (!is_current(cue) && !is_following(cue)) {
        return;
    }
    changes_.reserve(changes_.size() + notes_max);
    const auto now = clock_();
    const bool follows = cue != cue_;
    if (follows) {
        follow(cue, now);
        note(Change::track | Change::position, now);
    }
    // A paused track fails again when it should play, and is handled then.
    if (playing()) {
        pass_over(error, now);
    }
}

void Engine::output_lost() {
    const MutexLock guard(mutex_);
    if (!playing()) {
        return;
    }
    changes_.reserve(changes_.size() + notes_max);
    const auto now = clock_();
    stop_with(VANTRO_ERROR_OUTPUT, now);
    modes_.state = VANTRO_STATE_PAUSED;
    jump_to(base_, now);
    note(Change::position, now);
}

void Engine::no_output() {
    const MutexLock guard(mutex_);
    changes_.reserve(changes_.size() + notes_max);
    const auto now = clock_();
    place_at(playing() ? position(now) : base_, now);
    sounding_ = false;
    note(playing() ? unsigned{Change::position} : 0u, now);
}

} // namespace vantro::service::playback
