#include "service/playback/engine.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <utility>

#include <vantro/catalogue.h>

namespace vantro::service::playback {

namespace {

// The most changes that one call records: ends of tracks, its own effect, and a stop with the
// continuation after it.
constexpr size_t notes_max = 4;

bool differ(const VantroStateInfo &a, const VantroStateInfo &b) {
    return a.state != b.state || a.rate != b.rate || a.repeat != b.repeat || a.shuffle != b.shuffle;
}

} // namespace

Engine::Engine(Clock clock, uint32_t seed, bool sounding)
    : clock_(std::move(clock)), random_(seed),
      modes_{VANTRO_STATE_IDLE, 1.0f, VANTRO_REPEAT_OFF, VANTRO_SHUFFLE_OFF}, noted_(modes_),
      sounding_(sounding) {}

int32_t Engine::index() const {
    return order_.empty() ? place_ : order_[static_cast<size_t>(place_)];
}

int64_t Engine::duration() const {
    return length_of(session_->songs[static_cast<size_t>(index())]);
}

int64_t Engine::position(std::chrono::nanoseconds now) const {
    if (!playing() || (sounding_ && !heard_)) {
        return base_;
    }
    const auto elapsed = (now - base_time_).count() / 1000;
    const int64_t reached =
        base_ + static_cast<int64_t>(static_cast<double>(elapsed) * double{modes_.rate});
    return sounding_ ? std::min(reached, duration()) : reached;
}

void Engine::place_at(int64_t where, std::chrono::nanoseconds now) {
    base_ = where;
    base_time_ = now;
    next_tick_ = now + tick_every;
}

// Sets a position that differs from the one that is heard.
void Engine::jump_to(int64_t where, std::chrono::nanoseconds now) {
    place_at(where, now);
    cue_ = ++last_cue_;
    cue_position_ = where;
    following_cue_ = 0;
    heard_ = false;
}

// The next play begins with the first track.
void Engine::end_of_session() {
    modes_.state = VANTRO_STATE_STOPPED;
    place_ = 0;
}

// Records a change for the publisher, and a change of the modes if there is one. catch_up() has
// reserved the memory.
void Engine::note(unsigned what, std::chrono::nanoseconds now, int32_t error) {
    if (differ(modes_, noted_)) {
        what |= Change::state;
    }
    if (what == 0) {
        return;
    }
    noted_ = modes_;
    changes_.push_back({what, error, at(now)});
    noted_count_.fetch_add(1, std::memory_order_release);
}

// A track begins to play, if the player does.
void Engine::track_started() {
    if (!playing()) {
        return;
    }
    ++start_;
    start_taken_ = false;
}

// A track begins because a command chose it.
void Engine::track_started_by_choice() {
    failures_ = 0;
    track_started();
}

// Updates the state to the present time, and returns that time. Every operation begins with this.
std::chrono::nanoseconds Engine::catch_up() {
    changes_.reserve(changes_.size() + notes_max);
    const std::chrono::nanoseconds now = clock_();
    if (!playing() || sounding_) {
        return now;
    }
    int64_t reached = position(now);
    if (reached < duration()) {
        return now;
    }
    if (modes_.repeat == VANTRO_REPEAT_ONE) {
        reached %= duration();
    }
    while (reached >= duration()) {
        reached -= duration();
        if (++place_ < session_->length()) {
            continue;
        }
        place_ = 0;
        if (modes_.repeat == VANTRO_REPEAT_OFF) {
            end_of_session();
            reached = 0;
            break;
        }
        reached %= session_->total;
    }
    place_at(reached, now);
    track_started();
    note(Change::track | Change::position, now);
    return now;
}

int Engine::play() {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (!session_) {
        return ENODATA;
    }
    if (!playing()) {
        modes_.state = VANTRO_STATE_PLAYING;
        place_at(base_, now);
        track_started_by_choice();
        note(Change::position, now);
    }
    return 0;
}

int Engine::pause() {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (playing()) {
        place_at(position(now), now);
        modes_.state = VANTRO_STATE_PAUSED;
        note(Change::position, now);
    }
    return 0;
}

int Engine::stop() {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    const bool moves = playing() || base_ != 0;
    jump_to(0, now);
    if (session_) {
        modes_.state = VANTRO_STATE_STOPPED;
    }
    note(moves ? Change::position : 0u, now);
    return 0;
}

int Engine::next() {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (!session_) {
        return ENODATA;
    }
    if (place_ + 1 < session_->length()) {
        ++place_;
    } else if (modes_.repeat != VANTRO_REPEAT_OFF) {
        place_ = 0;
    } else {
        end_of_session();
    }
    jump_to(0, now);
    track_started_by_choice();
    note(Change::track | Change::position, now);
    return 0;
}

int Engine::previous() {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (!session_) {
        return ENODATA;
    }
    const int32_t from = place_;
    if (position(now) <= restart_after_ms * int64_t{1000}) {
        if (place_ > 0) {
            --place_;
        } else if (modes_.repeat != VANTRO_REPEAT_OFF) {
            place_ = session_->length() - 1;
        }
    }
    jump_to(0, now);
    if (place_ == from) {
        note(Change::position, now);
        return 0;
    }
    track_started_by_choice();
    note(Change::track | Change::position, now);
    return 0;
}

// With shuffle the song moves to the place after the current song in the order, so that every other
// song still comes once, and previous() returns to the song before the jump.
int Engine::jump(int32_t index) {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (!session_) {
        return ENODATA;
    }
    if (index < 0 || index >= session_->length()) {
        return ERANGE;
    }
    if (order_.empty()) {
        place_ = index;
    } else {
        const auto here = order_.begin() + place_;
        const auto there = std::find(order_.begin(), order_.end(), index);
        if (there > here) {
            std::rotate(here + 1, there, there + 1);
            ++place_;
        } else {
            std::rotate(there, there + 1, here + 1);
        }
    }
    jump_to(0, now);
    track_started_by_choice();
    note(Change::track | Change::position, now);
    return 0;
}

int Engine::seek(int32_t position_ms) {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (!session_) {
        return ENODATA;
    }
    jump_to(std::clamp<int64_t>(int64_t{1000} * position_ms, 0, duration()), now);
    note(Change::position, now);
    return 0;
}

int Engine::set_rate(float rate) {
    if (!(rate > 0 && rate <= rate_max)) { // also false for NaN
        return ERANGE;
    }
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (modes_.rate == rate) {
        return 0;
    }
    place_at(position(now), now);
    modes_.rate = rate;
    note(playing() ? Change::position : 0u, now);
    return 0;
}

int Engine::set_repeat(int32_t mode) {
    if (mode < VANTRO_REPEAT_OFF || mode > VANTRO_REPEAT_ONE) {
        return ERANGE;
    }
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    modes_.repeat = mode;
    note(0, now);
    return 0;
}

int Engine::set_volume(int32_t level) {
    if (level < 0 || level > volume_max) {
        return ERANGE;
    }
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    const int32_t taken = std::min(level, volume_limit_);
    const bool changed = std::exchange(volume_.level, taken) != taken;
    // A client that requested more shows that level until it gets this change.
    note(changed || taken != level ? Change::volume : 0u, now);
    return 0;
}

int Engine::set_muted(int32_t muted) {
    if (muted != 0 && muted != 1) {
        return ERANGE;
    }
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    const bool changed = std::exchange(volume_.muted, muted) != muted;
    note(changed ? Change::volume : 0u, now);
    return 0;
}

void Engine::set_volume_limit(int32_t limit) {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    volume_limit_ = limit;
    const bool changed = volume_.level > limit;
    volume_.level = std::min(volume_.level, limit);
    note(changed ? Change::volume : 0u, now);
}

// The current song stays the current one, and with shuffle all others follow it.
int Engine::set_shuffle(int32_t mode) {
    if (mode != VANTRO_SHUFFLE_OFF && mode != VANTRO_SHUFFLE_ON) {
        return ERANGE;
    }
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (session_ && modes_.shuffle != mode) {
        const int32_t current = index();
        if (mode == VANTRO_SHUFFLE_ON) {
            order_ = draw_order(*session_, current);
        } else {
            order_ = {};
        }
        place_ = order_.empty() ? current : 0;
    }
    modes_.shuffle = mode;
    note(0, now);
    return 0;
}

Engine::Snapshot Engine::at(std::chrono::nanoseconds now) const {
    if (!session_) {
        return {modes_, volume_, nullptr, 0, 0};
    }
    return {modes_, volume_, session_, index(), static_cast<int32_t>(position(now) / 1000)};
}

Engine::Snapshot Engine::snapshot() {
    const MutexLock guard(mutex_);
    return at(catch_up());
}

bool Engine::first_change(Change &change) {
    const MutexLock guard(mutex_);
    if (changes_.empty()) {
        return false;
    }
    change = changes_.front();
    return true;
}

void Engine::drop_change() {
    const MutexLock guard(mutex_);
    changes_.erase(changes_.begin());
}

std::optional<std::chrono::nanoseconds> Engine::wake() {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (time_to_wake(now) && now >= next_tick_) {
        next_tick_ += (now - next_tick_) / tick_every * tick_every + tick_every;
        note(Change::tick, now);
    }
    return time_to_wake(now);
}

std::optional<std::chrono::nanoseconds> Engine::next_wake() {
    const MutexLock guard(mutex_);
    return time_to_wake(clock_());
}

std::optional<std::chrono::nanoseconds> Engine::time_to_wake(std::chrono::nanoseconds now) const {
    // Before the track is heard, the sound reports without a request.
    if (!playing() || (sounding_ && !heard_)) {
        return std::nullopt;
    }
    if (sounding_) {
        return std::max<std::chrono::nanoseconds>(next_tick_ - now, {});
    }
    // At a low rate an end may exceed the range of times; some decades suffice as a bound. One
    // microsecond is added because of rounding.
    const auto lasts = [this](int64_t us) REQUIRES(mutex_) {
        const double real_us = static_cast<double>(us) / double{modes_.rate} + 1;
        return std::chrono::microseconds(std::llround(std::min(real_us, 1e15)));
    };
    const bool short_one = lasts(duration()) < end_after;
    const auto end = base_time_ + (short_one ? end_after : lasts(duration() - base_));
    return std::max<std::chrono::nanoseconds>(std::min(end, next_tick_) - now, {});
}

bool Engine::has_start() {
    const MutexLock guard(mutex_);
    return !start_taken_ && playing();
}

std::optional<Engine::Start> Engine::take_start() {
    const MutexLock guard(mutex_);
    if (start_taken_ || !playing()) {
        return std::nullopt;
    }
    start_taken_ = true;
    return Start{start_, session_->songs[static_cast<size_t>(index())].id};
}

void Engine::checked(uint64_t number, int32_t error) {
    // Time advances only in wake() and with commands. If it advanced here, tracks shorter than the
    // check of their files would never be checked.
    const MutexLock guard(mutex_);
    if (number != start_ || !playing()) {
        return;
    }
    if (error == 0) {
        if (!sounding_) { // with a sound, a track is playable once it is heard
            failures_ = 0;
        }
        return;
    }
    changes_.reserve(changes_.size() + notes_max);
    pass_over(error, clock_());
}

// Followers see the player stop at its position with this error; the next change shows how it
// continues.
void Engine::stop_with(int32_t error, std::chrono::nanoseconds now) {
    place_at(std::min(position(now), duration()), now);
    modes_.state = VANTRO_STATE_STOPPED;
    note(0, now, error);
}

void Engine::source_gone(int32_t source) {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (!playing() || session_->songs[static_cast<size_t>(index())].source != source) {
        return;
    }
    stop_with(VANTRO_ERROR_GONE, now);
    jump_to(0, now);
    note(Change::position, now);
}

// The current track cannot be played: the next one follows, if there is one and not too many were
// unplayable.
void Engine::pass_over(int32_t error, std::chrono::nanoseconds now) {
    const uint64_t following = is_following(following_cue_) ? following_cue_ : 0;
    stop_with(error, now);
    if (++place_ == session_->length()) {
        place_ = 0;
        if (modes_.repeat == VANTRO_REPEAT_OFF) {
            failures_ = failures_max;
        }
    }
    jump_to(0, now);
    if (following != 0 && following_place_ == place_) {
        cue_ = following; // the sound has already started it
    }
    if (++failures_ < std::min(failures_max, session_->length())) {
        modes_.state = VANTRO_STATE_PLAYING;
        track_started();
    }
    note(Change::track | Change::position, now);
}

} // namespace vantro::service::playback
