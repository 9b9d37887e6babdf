// The state of a player in MPRIS terms, for clients of the bus.
#ifndef VANTRO_BRIDGES_MPRIS_PLAYER_VIEW_H
#define VANTRO_BRIDGES_MPRIS_PLAYER_VIEW_H

#include <cstdint>
#include <string>
#include <vector>

#include "bridges/mpris/player_mirror.h"
#include "bridges/mpris/song.h"

namespace vantro::mpris {

// The service accepts rates above 0, up to 16; MPRIS needs a smallest rate.
inline constexpr double rate_min = 0.01;
inline constexpr double rate_max = 16;

// The properties of org.mpris.MediaPlayer2.Player that change, except the position.
struct PlayerView {
    std::string playback_status;
    std::string loop_status;
    double rate = 1;
    bool shuffle = false;
    Song song;
    double volume = 1;
    bool can_go_next = false;
    bool can_go_previous = false;
    bool can_pause = false;
    bool can_seek = false;
};

PlayerView view_of(const PlayerMirror &mirror);

// The names of the properties in which the two differ.
std::vector<const char *> changed_properties(const PlayerView &before, const PlayerView &now);

// The tracks that the track list shows: all of a short session, or some around the current track of
// a long one, so that neither a message nor a list on a screen grows without bound.
struct TrackWindow {
    static constexpr int32_t tracks_max = 200;

    uint64_t tsid = 0;
    int32_t first = 0;
    int32_t count = 0;

    bool operator==(const TrackWindow &) const = default;
    bool holds(const TrackPlace &place) const {
        return place.tsid == tsid && place.index >= first && place.index - first < count;
    }
};

// The window after `before`: the same one while it has tracks on both sides of the current one.
TrackWindow next_window(const TrackWindow &before, const PlayerMirror &mirror);

} // namespace vantro::mpris

#endif
