// The state of a player, which its events keep up to date, and its position in the track.
#ifndef VANTRO_BRIDGES_MPRIS_PLAYER_MIRROR_H
#define VANTRO_BRIDGES_MPRIS_PLAYER_MIRROR_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include <vantro/vantro.hpp>

#include "bridges/mpris/object_names.h"
#include "bridges/mpris/song.h"

namespace vantro::mpris {

// The current track.
struct Current {
    TrackPlace place;
    int32_t ms_id = 0;
    std::string node_id; // Empty if the song has left the catalogue.
    Song song;
};

class PlayerMirror {
  public:
    using Time = std::chrono::steady_clock::time_point;

    void apply(const Event &event, Time at);

    const VantroStateInfo &modes() const { return modes_; }
    const VantroTrksessionInfo &session() const { return session_; }
    const std::optional<Current> &current() const { return current_; }
    const VantroVolume &volume() const { return volume_; }
    void set_volume(const VantroVolume &volume) { volume_ = volume; }

    // Sets the service's data of the song.
    void set_song(Song song) { current_->song = std::move(song); }

    // Whether a track event came since the last call, so that its song must be queried.
    bool take_track_news() { return std::exchange(track_news_, false); }
    // Whether a media source changed since the last call.
    bool take_source_news() { return std::exchange(source_news_, false); }

    // The last reported position, plus the time since then while the player plays.
    double position_ms(Time at) const;

    // Jumps. A report that differs from the clock's prediction is a jump, or was read late: events
    // carry no time. Such a report causes a suspicion, which a query settles: its answer is the
    // present position. A new track is expected to begin at 0, and ends a suspicion about the
    // previous one.
    bool suspects_jump() const { return suspicion_.has_value(); }
    void forget_suspicion() { suspicion_.reset(); }
    // @return whether it was a jump.
    bool settle(double position_ms, Time at);

  private:
    struct Suspicion {
        double predicted_ms;
        Time at;
        double tolerance_ms;
    };

    void apply_state(const Event &event, Time at);
    void apply_track(const TrackEvent &track, Time at);
    void apply_position(double position_ms, Time at);
    bool moving() const;
    double carry_on(double position_ms, Time from, Time to) const;
    double tolerance_ms(Time at) const;
    void hold(double position_ms, Time at);

    VantroStateInfo modes_ = {VANTRO_STATE_NONE, 1.0F, VANTRO_REPEAT_OFF, VANTRO_SHUFFLE_OFF};
    VantroTrksessionInfo session_ = {};
    std::optional<Current> current_;
    VantroVolume volume_ = {100, 0};
    double position_ms_ = 0;
    Time told_at_ = {};         // The time to which position_ms_ belongs.
    Time changed_at_ = {};      // The time of the last change of state, rate or track.
    bool position_due_ = false; // The report for a change of state or track has not come yet.
    bool track_news_ = false;
    bool source_news_ = false;
    std::optional<Suspicion> suspicion_;
};

} // namespace vantro::mpris

#endif
