#include "bridges/mpris/player_mirror.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace vantro::mpris {

namespace {

// How far a report may differ from the clock's prediction without being a jump, at rate 1. An
// output that opens delays the first sound, and a file's sound drifts against the clock.
constexpr double playing_tolerance_ms = 250;
constexpr double starting_tolerance_ms = 1500;
constexpr auto starting = std::chrono::seconds(3);

int32_t number(std::string_view text) {
    int32_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

} // namespace

void PlayerMirror::apply(const Event &event, Time at) {
    apply_state(event, at);
    if (const auto *session = event.as<SessionEvent>()) {
        session_ = session->session;
    } else if (const auto *track = event.as<TrackEvent>()) {
        apply_track(*track, at);
    } else if (const auto *position = event.as<PositionEvent>()) {
        apply_position(static_cast<double>(position->position.count()), at);
    } else if (event.as<SourceEvent>()) {
        source_news_ = true;
    } else if (event.object() == "volume") {
        if (const auto level = event.attribute("level")) {
            volume_.level = std::clamp(number(*level), 0, 100);
        }
        if (const auto muted = event.attribute("muted")) {
            volume_.muted = *muted == "true" ? 1 : 0;
        }
    }
}

// Every event carries the player's last known modes.
void PlayerMirror::apply_state(const Event &event, Time at) {
    const VantroStateInfo now = event.now();
    if (now.state != modes_.state || now.rate != modes_.rate) {
        // Until now the position moved at the old rate.
        if (suspicion_) {
            suspicion_->predicted_ms = carry_on(suspicion_->predicted_ms, suspicion_->at, at);
            suspicion_->at = at;
        }
        hold(position_ms(at), at);
        if (now.state == VANTRO_STATE_STOPPED && modes_.state != VANTRO_STATE_STOPPED) {
            hold(0, at); // Not a jump: a stopped player is expected to be at 0.
            suspicion_.reset();
        }
        changed_at_ = at;
        position_due_ = true;
    }
    modes_ = now;
    if (modes_.state == VANTRO_STATE_IDLE || modes_.state == VANTRO_STATE_NONE) {
        // Ending a session sends no event; a new session's events follow.
        session_ = {};
        current_.reset();
        suspicion_.reset();
        hold(0, at);
    }
}

void PlayerMirror::apply_track(const TrackEvent &track, Time at) {
    const TrackPlace place{track.tsid, track.index};
    if (!current_ || current_->place != place) {
        suspicion_.reset();
        changed_at_ = at;
        position_due_ = true;
        hold(0, at); // The position at which a track is expected to begin.
    }
    // The same place: either the song's metadata changed, or it begins again, which a report of the
    // position will show.
    Current current;
    current.place = place;
    current.song = song_of(track.metadata);
    current.song.path = path_of(place);
    if (track.node) {
        current.ms_id = track.node->ms_id;
        current.node_id = text(track.node->id);
        if (current.song.title.empty()) {
            current.song.title = clean_text(text(track.node->name));
        }
    }
    current_ = std::move(current);
    track_news_ = true;
}

void PlayerMirror::apply_position(double position_ms, Time at) {
    const double predicted = this->position_ms(at);
    const double tolerance = tolerance_ms(at);
    if (!suspicion_ && std::abs(position_ms - predicted) > tolerance) {
        suspicion_ = {predicted, at, tolerance};
    }
    position_due_ = false;
    hold(position_ms, at);
}

double PlayerMirror::position_ms(Time at) const {
    return carry_on(position_ms_, told_at_, at);
}

bool PlayerMirror::settle(double position_ms, Time at) {
    const double predicted = carry_on(suspicion_->predicted_ms, suspicion_->at, at);
    const bool jumped = std::abs(position_ms - predicted) > suspicion_->tolerance_ms;
    suspicion_.reset();
    hold(position_ms, at);
    return jumped;
}

bool PlayerMirror::moving() const {
    return current_ && modes_.state == VANTRO_STATE_PLAYING && std::isfinite(modes_.rate);
}

double PlayerMirror::carry_on(double position_ms, Time from, Time to) const {
    if (!moving()) {
        return position_ms;
    }
    const double passed_ms = std::chrono::duration<double, std::milli>(to - from).count();
    const double moved = position_ms + std::max(passed_ms, 0.0) * double{modes_.rate};
    const double end = static_cast<double>(current_->song.length_us) / 1000;
    return end > 0 ? std::clamp(moved, 0.0, end) : moved;
}

double PlayerMirror::tolerance_ms(Time at) const {
    const double faster = std::max(1.0, double{modes_.rate});
    if (position_due_ || (moving() && at - changed_at_ < starting)) {
        return starting_tolerance_ms * faster;
    }
    return moving() ? playing_tolerance_ms * faster : 0;
}

void PlayerMirror::hold(double position_ms, Time at) {
    position_ms_ = position_ms;
    told_at_ = at;
}

} // namespace vantro::mpris
