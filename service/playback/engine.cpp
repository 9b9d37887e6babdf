#include "service/playback/engine.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <numeric>
#include <utility>

namespace vantro {

namespace {

// A track without length would make repeating it endless within one moment.
double length_of(const Track &track) {
    return std::max(track.duration_ms, 1);
}

} // namespace

Engine::Engine(const std::vector<Track> &tracks, Clock clock, uint32_t seed)
    : tracks_(tracks), clock_(std::move(clock)),
      random_(seed), modes_{VANTRO_STATE_IDLE, 1.0f, VANTRO_REPEAT_OFF, VANTRO_SHUFFLE_OFF},
      order_(tracks.size()) {
    std::iota(order_.begin(), order_.end(), 0);
    for (const Track &track : tracks)
        total_ms_ += length_of(track);
}

double Engine::duration_ms() const {
    return length_of(tracks_[static_cast<std::size_t>(order_[place_])]);
}

double Engine::position_ms(std::chrono::nanoseconds now) const {
    if (!playing())
        return base_ms_;
    const auto elapsed = static_cast<double>((now - base_time_).count());
    return base_ms_ + elapsed / 1e6 * static_cast<double>(modes_.rate);
}

void Engine::place_at(double position, std::chrono::nanoseconds now) {
    base_ms_ = position;
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
    double position = 0;
    if (!playing() || (position = position_ms(now)) < duration_ms())
        return now;
    if (modes_.repeat == VANTRO_REPEAT_ONE) {
        place_at(std::fmod(position, duration_ms()), now);
        return now;
    }
    while (position >= duration_ms()) {
        position -= duration_ms();
        if (++place_ < order_.size())
            continue;
        place_ = 0;
        if (modes_.repeat == VANTRO_REPEAT_OFF) {
            end_of_queue();
            position = 0;
            break;
        }
        position = std::fmod(position, total_ms_);
    }
    place_at(position, now);
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
        place_at(position_ms(now), now);
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
    if (position_ms(now) <= restart_after_ms) {
        if (place_ > 0)
            --place_;
        else if (modes_.repeat != VANTRO_REPEAT_OFF)
            place_ = order_.size() - 1;
    }
    place_at(0, now);
    return 0;
}

int Engine::seek(int32_t position) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (order_.empty())
        return ENODATA;
    place_at(std::clamp<double>(position, 0, duration_ms()), now);
    return 0;
}

int Engine::set_rate(float rate) {
    if (!(rate > 0 && rate <= rate_max)) // false for what is not a number
        return ERANGE;
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    place_at(position_ms(now), now);
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
// has played nothing yet has no such track, so its first one is drawn too.
void Engine::reorder() {
    if (order_.empty())
        return;
    const int32_t current = order_[place_];
    std::iota(order_.begin(), order_.end(), 0);
    if (modes_.shuffle == VANTRO_SHUFFLE_OFF) {
        place_ = static_cast<std::size_t>(current);
        return;
    }
    place_ = 0;
    auto first = order_.begin();
    if (modes_.state == VANTRO_STATE_IDLE) {
        base_ms_ = 0;
    } else {
        std::swap(order_.front(), order_[static_cast<std::size_t>(current)]);
        ++first;
    }
    std::shuffle(first, order_.end(), random_);
}

Engine::Snapshot Engine::snapshot() {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (order_.empty())
        return {modes_, -1, 0};
    return {modes_, order_[place_], static_cast<int32_t>(position_ms(now))};
}

} // namespace vantro
