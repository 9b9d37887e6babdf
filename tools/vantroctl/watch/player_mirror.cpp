#include "tools/vantroctl/watch/player_mirror.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>

#include <vantro/player.h>

namespace vantro::ctl {
namespace {

// A position event comes about once a second; one that differs by more than this is a jump.
constexpr int64_t jump_ms_min = 1500;

} // namespace

void PlayerMirror::apply(const PlayerEvent &event) {
    switch (event.kind) {
    case PlayerEvent::Kind::state:
    case PlayerEvent::Kind::error:
        hold(position(event.at), event.at); // Until this event the position moved at the old rate.
        static_cast<PlayerModes &>(status_) = event.modes;
        if (event.kind == PlayerEvent::Kind::error) {
            trouble_ = event;
        }
        if (event.modes.state == VANTRO_STATE_IDLE || event.modes.state == VANTRO_STATE_NONE) {
            // Ending a session sends no event; a new session's event follows.
            status_.session.reset();
            status_.track.reset();
            hold(0, event.at);
        }
        break;
    case PlayerEvent::Kind::session:
        status_.session = event.session;
        break;
    case PlayerEvent::Kind::track:
        status_.track = event.track;
        hold(0, event.at); // If it starts elsewhere, a position event follows.
        break;
    case PlayerEvent::Kind::position:
        hold(event.position_ms, event.at);
        break;
    case PlayerEvent::Kind::source:
        if (event.source_gone) {
            sources_.erase(event.source.id);
        } else {
            sources_[event.source.id] = event.source;
        }
        break;
    case PlayerEvent::Kind::gone:
    case PlayerEvent::Kind::back:
        *this = PlayerMirror(status_.player);
        gone_ = event.kind == PlayerEvent::Kind::gone;
        break;
    case PlayerEvent::Kind::waiting:
        trouble_ = event;
        break;
    case PlayerEvent::Kind::object:
        if (event.object == "volume") {
            hold_volume(event);
        }
        break;
    }
}

void PlayerMirror::hold_volume(const PlayerEvent &event) {
    Volume volume = status_.volume.value_or(Volume{});
    for (const auto &[name, value] : event.attributes) {
        if (name == "level") {
            std::from_chars(value.data(), value.data() + value.size(), volume.level);
        } else if (name == "muted") {
            volume.muted = value == "true";
        }
    }
    status_.volume = volume;
}

std::vector<PlayerEvent> PlayerMirror::events() const {
    PlayerEvent common;
    common.player = status_.player;
    common.initial = true;
    common.modes = status_;
    common.session = status_.session;
    common.track = status_.track;
    common.position_ms = position(common.at);
    std::vector<PlayerEvent> events;
    for (const auto kind : {PlayerEvent::Kind::state, PlayerEvent::Kind::session,
                            PlayerEvent::Kind::track, PlayerEvent::Kind::position}) {
        common.kind = kind;
        events.push_back(common);
    }
    common.kind = PlayerEvent::Kind::source;
    for (const auto &entry : sources_) {
        common.source = entry.second;
        events.push_back(common);
    }
    return events;
}

PlayerStatus PlayerMirror::status(Time at) const {
    PlayerStatus status = status_;
    status.position_ms = position(at);
    return status;
}

bool PlayerMirror::moving() const {
    return !gone_ && status_.track && status_.state == VANTRO_STATE_PLAYING &&
           std::isfinite(status_.rate) && status_.rate != 0;
}

bool PlayerMirror::expects(const PlayerEvent &event) const {
    return event.kind == PlayerEvent::Kind::position && !event.initial && moving() &&
           std::llabs(int64_t{event.position_ms} - position(event.at)) < jump_ms_min;
}

int32_t PlayerMirror::position(Time at) const {
    if (!moving()) {
        return status_.position_ms;
    }
    const double passed_ms = std::chrono::duration<double, std::milli>(at - told_at_).count();
    const int32_t end = status_.track->duration_ms > 0 ? status_.track->duration_ms : INT32_MAX;
    const double now = status_.position_ms + std::max(passed_ms, 0.0) * status_.rate;
    return static_cast<int32_t>(std::clamp(now, 0.0, static_cast<double>(end)));
}

void PlayerMirror::hold(int32_t position_ms, Time at) {
    status_.position_ms = position_ms;
    told_at_ = at;
}

} // namespace vantro::ctl
