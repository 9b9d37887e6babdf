// The state of a followed player, which its events keep up to date.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_PLAYER_MIRROR_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_PLAYER_MIRROR_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/vantroctl/model/player_event.h"

namespace vantro::ctl {

class PlayerMirror {
  public:
    using Time = std::chrono::steady_clock::time_point;

    explicit PlayerMirror(const std::string &player) { status_.player = player; }

    void apply(const PlayerEvent &event);

    // The complete state as events: state, session, track, position, and the sources by their
    // numbers.
    std::vector<PlayerEvent> events() const;

    // The last known status; while the player plays, the position moves on with the clock.
    PlayerStatus status(Time at) const;

    const std::map<int32_t, Source> &sources() const { return sources_; }

    // Whether the position moves on.
    bool moving() const;

    // Whether the event is a position that the clock predicts, not a jump.
    bool expects(const PlayerEvent &event) const;

    bool gone() const { return gone_; }

    // The last error, or the reason for which the service cannot be followed yet.
    const std::optional<PlayerEvent> &trouble() const { return trouble_; }

  private:
    int32_t position(Time at) const;
    void hold(int32_t position_ms, Time at);
    void hold_volume(const PlayerEvent &event);

    PlayerStatus status_;
    // The time to which status_.position_ms belongs.
    Time told_at_ = std::chrono::steady_clock::now();
    std::map<int32_t, Source> sources_;
    bool gone_ = false;
    std::optional<PlayerEvent> trouble_;
};

} // namespace vantro::ctl

#endif
