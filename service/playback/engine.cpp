#include "service/playback/engine.h"

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <utility>

namespace vantro {

namespace {

// A track without length would make repeating it endless within one moment.
int64_t length_of(const Track &track) {
    return int64_t{1000} * std::max(track.duration_ms, 1);
}

} // namespace

Engine::Engine(const std::vector<Track> &tracks, Clock clock, uint32_t seed)
    : tracks_(tracks), clock_(std::move(clock)),
      random_(seed), modes_{VANTRO_STATE_IDLE, 1.0f, VANTRO_REPEAT_OFF, VANTRO_SHUFFLE_OFF},
      order_(tracks.size()) {
    std::iota(order_.begin(), order_.end(), 0);
    for (const Track &track : tracks)
        total_ += length_of(track);
}

int64_t Engine::duration() const {
    return length_of(tracks_[static_cast<std::size_t>(order_[place_])]);
}

int64_t Engine::position(std::chrono::nanoseconds now) const {
    if (!playing())
        return base_;
    const auto elapsed = (now - base_time_).count() / 1000;
    return base_ + static_cast<int64_t>(static_cast<double>(elapsed) * double{modes_.rate});
}

void Engine::place_at(int64_t where, std::chrono::nanoseconds now) {
    base_ = where;
    base_time_ = now;
}

// The next play begins from the top.
void Engine::end_of_queue() {
    if (modes_.state != VANTRO_STATE_IDLE)
        modes_.state = VANTRO_STATE_STOPPED;
    place_ = 0;
}

// Brings the player up to now, which is returned. Every operation begins here.
std::chrono::nanoseconds Engine::catch_up() {
    const std::chrono::nanoseconds now = clock_();
    if (!playing())
        return now;
    int64_t reached = position(now);
    if (reached < duration())
        return now;
    if (modes_.repeat == VANTRO_REPEAT_ONE)
        reached %= duration();
    while (reached >= duration()) {
        reached -= duration();
        if (++place_ < order_.size())
            continue;
        place_ = 0;
        if (modes_.repeat == VANTRO_REPEAT_OFF) {
            end_of_queue();
            reached = 0;
            break;
        }
        reached %= total_;
    }
    place_at(reached, now);
    return now;
}

int Engine::play() {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (order_.empty())
        return ENODATA;
    if (!playing()) {
        modes_.state = VANTRO_STATE_PLAYING;
        base_time_ = now;
    }
    return 0;
}

int Engine::pause() {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (playing()) {
        place_at(position(now), now);
        modes_.state = VANTRO_STATE_PAUSED;
    }
    return 0;
}

int Engine::stop() {
    const std::lock_guard<std::mutex> guard(mutex_);
    place_at(0, catch_up());
    if (modes_.state != VANTRO_STATE_IDLE)
        modes_.state = VANTRO_STATE_STOPPED;
    return 0;
}

int Engine::next() {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (order_.empty())
        return ENODATA;
    if (place_ + 1 < order_.size())
        ++place_;
    else if (modes_.repeat != VANTRO_REPEAT_OFF)
        place_ = 0;
    else
        end_of_queue();
    place_at(0, now);
    return 0;
}

int Engine::previous() {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (order_.empty())
        return ENODATA;
    if (position(now) <= restart_after_ms * int64_t{1000}) {
        if (place_ > 0)
            --place_;
        else if (modes_.repeat != VANTRO_REPEAT_OFF)
            place_ = order_.size() - 1;
    }
    place_at(0, now);
    return 0;
}

int Engine::seek(int32_t position_ms) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (order_.empty())
        return ENODATA;
    place_at(std::clamp<int64_t>(int64_t{1000} * position_ms, 0, duration()), now);
    return 0;
}

int Engine::set_rate(float rate) {
    if (!(rate > 0 && rate <= rate_max)) // false for what is not a number
        return ERANGE;
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    place_at(position(now), now);
    modes_.rate = rate;
    return 0;
}

int Engine::set_repeat(int32_t mode) {
    if (mode < VANTRO_REPEAT_OFF || mode > VANTRO_REPEAT_ONE)
        return ERANGE;
    const std::lock_guard<std::mutex> guard(mutex_);
    catch_up();
    modes_.repeat = mode;
    return 0;
}

int Engine::set_shuffle(int32_t mode) {
    if (mode != VANTRO_SHUFFLE_OFF && mode != VANTRO_SHUFFLE_ON)
        return ERANGE;
    const std::lock_guard<std::mutex> guard(mutex_);
    catch_up();
    if (modes_.shuffle != mode) {
        modes_.shuffle = mode;
        reorder();
    }
    return 0;
}

// The current track stays the current one, and with shuffle all others follow it. A player that
// has played nothing yet begins anew instead, so that its first track is drawn too.
void Engine::reorder() {
    if (order_.empty())
        return;
    const bool fresh = modes_.state == VANTRO_STATE_IDLE;
    const auto current = static_cast<std::size_t>(fresh ? 0 : order_[place_]);
    std::iota(order_.begin(), order_.end(), 0);
    place_ = 0;
    if (fresh)
        base_ = 0;
    if (modes_.shuffle == VANTRO_SHUFFLE_OFF) {
        place_ = current;
        return;
    }
    std::swap(order_.front(), order_[current]);
    std::shuffle(order_.begin() + (fresh ? 0 : 1), order_.end(), random_);
}

Engine::Snapshot Engine::snapshot() {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (order_.empty())
        return {modes_, -1, 0};
    return {modes_, order_[place_], static_cast<int32_t>(position(now) / 1000)};
}

} // namespace vantro
