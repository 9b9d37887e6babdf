// Loads, replaces and unloads track sessions.
#include "service/playback/engine.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace vantro::service::playback {

void Engine::load(SessionPtr session, int32_t index, bool play) {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    std::vector<int32_t> order;
    if (modes_.shuffle == VANTRO_SHUFFLE_ON) {
        order = draw_order(*session, index);
    }
    place_ = order.empty() ? std::max(index, 0) : 0;
    order_.swap(order);
    session_.swap(session); // the old one is freed, if nothing else has it, without the lock
    modes_.state = play ? VANTRO_STATE_PLAYING : VANTRO_STATE_PAUSED;
    jump_to(0, now);
    track_started_by_choice();
    note(Change::session | Change::track | Change::position, now);
}

bool Engine::extend(const Snapshot &from, SessionPtr session, bool next) {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (session_ != from.session || (next && index() != from.index)) {
        return false;
    }
    const int32_t before = session_->length();
    const int32_t count = session->length() - before;
    const int32_t first = next ? from.index + 1 : before; // the index of the first new song
    if (!order_.empty()) {
        std::vector<int32_t> order = order_;
        for (int32_t &at : order) {
            at += at >= first ? count : 0;
        }
        std::vector<int32_t> added(static_cast<size_t>(count));
        std::iota(added.begin(), added.end(), first);
        if (!next) {
            std::shuffle(added.begin(), added.end(), random_);
        }
        order.insert(next ? order.begin() + place_ + 1 : order.end(), added.begin(), added.end());
        order_.swap(order);
    }
    session_.swap(session); // the old one is freed, if nothing else has it, without the lock
    note(Change::session | Change::track | Change::position, now);
    return true;
}

bool Engine::keep(const Snapshot &from, SessionPtr session, int32_t index) {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    if (session_ != from.session) {
        return false;
    }
    const bool same = session->songs[static_cast<size_t>(index)].id == song_at(place_);
    std::vector<int32_t> order;
    if (modes_.shuffle == VANTRO_SHUFFLE_ON) {
        order = draw_order(*session, index);
    }
    place_ = order.empty() ? index : 0;
    order_.swap(order);
    session_.swap(session); // the old one is freed, if nothing else has it, without the lock
    if (!same) {
        jump_to(0, now);
        track_started_by_choice();
    }
    note(Change::session | Change::track | Change::position, now);
    return true;
}

void Engine::unload(uint64_t tsid) {
    SessionPtr dropped;
    const MutexLock guard(mutex_);
    if (!session_ || session_->tsid != tsid) {
        return;
    }
    const auto now = catch_up();
    dropped.swap(session_);
    order_ = {};
    place_ = 0;
    base_ = 0;
    cue_ = 0;
    following_cue_ = 0;
    modes_.state = VANTRO_STATE_IDLE;
    note(Change::session, now);
}

Engine::Saved Engine::saved() {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    // The position of a sound may be beyond the end that the catalogue states.
    const int64_t where = session_ ? std::clamp<int64_t>(position(now), 0, duration()) : 0;
    return {modes_, volume_, session_, order_, place_, where};
}

void Engine::restore(const Saved &saved, bool play) {
    const MutexLock guard(mutex_);
    const auto now = catch_up();
    order_ = saved.order;
    session_ = saved.session;
    modes_ = saved.modes;
    volume_ = saved.volume;
    volume_.level = std::min(volume_.level, volume_limit_);
    place_ = saved.place;
    if (playing() && !play) {
        modes_.state = VANTRO_STATE_PAUSED;
    }
    // A volume that was never set is not published.
    const bool is_set = volume_.level != volume_max || volume_.muted != 0;
    const unsigned volume = is_set ? unsigned{Change::volume} : 0u;
    if (!session_) {
        note(volume, now);
        return;
    }
    jump_to(saved.position_us, now);
    track_started_by_choice();
    note(Change::session | Change::track | Change::position | volume, now);
}

// Every song once; `first` comes first, unless it is any_index.
std::vector<int32_t> Engine::draw_order(const TrackSession &session, int32_t first) {
    std::vector<int32_t> order(session.songs.size());
    std::iota(order.begin(), order.end(), 0);
    if (first != any_index) {
        std::swap(order.front(), order[static_cast<size_t>(first)]);
    }
    std::shuffle(order.begin() + (first == any_index ? 0 : 1), order.end(), random_);
    return order;
}

} // namespace vantro::service::playback
