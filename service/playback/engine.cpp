#include "service/playback/engine.h"

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <utility>

namespace vantro {

Engine::Engine(Clock clock, uint32_t seed)
    : clock_(std::move(clock)),
      random_(seed), modes_{VANTRO_STATE_IDLE, 1.0f, VANTRO_REPEAT_OFF, VANTRO_SHUFFLE_OFF} {}

void Engine::load(SessionPtr session, int32_t index, bool play) {
    const std::lock_guard<std::mutex> guard(mutex_);
    std::vector<int32_t> order;
    if (modes_.shuffle == VANTRO_SHUFFLE_ON)
        order = draw_order(*session, index);
    place_ = order.empty() ? std::max(index, 0) : 0;
    order_.swap(order);
    session_.swap(session); // the old one, if this was its last place, goes after the lock
    modes_.state = play ? VANTRO_STATE_PLAYING : VANTRO_STATE_PAUSED;
    place_at(0, clock_());
}

void Engine::unload(uint64_t tsid) {
    SessionPtr dropped;
    const std::lock_guard<std::mutex> guard(mutex_);
    if (!session_ || session_->tsid != tsid)
        return;
    dropped.swap(session_);
    order_ = {};
    place_ = 0;
    base_ = 0;
    modes_.state = VANTRO_STATE_IDLE;
}

// Every song once; `first` begins, unless it is any_index.
std::vector<int32_t> Engine::draw_order(const TrackSession &session, int32_t first) {
    std::vector<int32_t> order(session.songs.size());
    std::iota(order.begin(), order.end(), 0);
    if (first != any_index)
        std::swap(order.front(), order[static_cast<std::size_t>(first)]);
    std::shuffle(order.begin() + (first == any_index ? 0 : 1), order.end(), random_);
    return order;
}

int32_t Engine::index() const {
    return order_.empty() ? place_ : order_[static_cast<std::size_t>(place_)];
}

int64_t Engine::duration() const {
    return length_of(session_->songs[static_cast<std::size_t>(index())]);
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
void Engine::end_of_session() {
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
        if (++place_ < session_->length())
            continue;
        place_ = 0;
        if (modes_.repeat == VANTRO_REPEAT_OFF) {
            end_of_session();
            reached = 0;
            break;
        }
        reached %= session_->total;
    }
    place_at(reached, now);
    return now;
}

int Engine::play() {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (!session_)
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
    if (session_)
        modes_.state = VANTRO_STATE_STOPPED;
    return 0;
}

int Engine::next() {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (!session_)
        return ENODATA;
    if (place_ + 1 < session_->length())
        ++place_;
    else if (modes_.repeat != VANTRO_REPEAT_OFF)
        place_ = 0;
    else
        end_of_session();
    place_at(0, now);
    return 0;
}

int Engine::previous() {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (!session_)
        return ENODATA;
    if (position(now) <= restart_after_ms * int64_t{1000}) {
        if (place_ > 0)
            --place_;
        else if (modes_.repeat != VANTRO_REPEAT_OFF)
            place_ = session_->length() - 1;
    }
    place_at(0, now);
    return 0;
}

// With shuffle the song's place in the order becomes the one behind the current song, so that
// every other song still comes once, and previous() goes back to where the jump was made.
int Engine::jump(int32_t index) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (!session_)
        return ENODATA;
    if (index < 0 || index >= session_->length())
        return ERANGE;
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
    place_at(0, now);
    return 0;
}

int Engine::seek(int32_t position_ms) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (!session_)
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

// The current song stays the current one, and with shuffle all others follow it.
int Engine::set_shuffle(int32_t mode) {
    if (mode != VANTRO_SHUFFLE_OFF && mode != VANTRO_SHUFFLE_ON)
        return ERANGE;
    const std::lock_guard<std::mutex> guard(mutex_);
    catch_up();
    if (session_ && modes_.shuffle != mode) {
        const int32_t current = index();
        if (mode == VANTRO_SHUFFLE_ON)
            order_ = draw_order(*session_, current);
        else
            order_ = {};
        place_ = order_.empty() ? current : 0;
    }
    modes_.shuffle = mode;
    return 0;
}

Engine::Snapshot Engine::snapshot() {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto now = catch_up();
    if (!session_)
        return {modes_, nullptr, 0, 0};
    return {modes_, session_, index(), static_cast<int32_t>(position(now) / 1000)};
}

} // namespace vantro
