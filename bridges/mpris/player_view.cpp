#include "bridges/mpris/player_view.h"

#include <algorithm>
#include <charconv>

#include <vantro/player.h>

namespace vantro::mpris {

namespace {

// The window of a long session is moved when the current track comes this near to its edge.
constexpr int32_t margin = 20;

const char *playback_status(int32_t state) {
    return state == VANTRO_STATE_PLAYING  ? "Playing"
           : state == VANTRO_STATE_PAUSED ? "Paused"
                                          : "Stopped";
}

const char *loop_status(int32_t repeat) {
    return repeat == VANTRO_REPEAT_ONE   ? "Track"
           : repeat == VANTRO_REPEAT_ALL ? "Playlist"
                                         : "None";
}

// The double with the shortest decimal text for this float: 1.1, not 1.10000002.
double rate_of(float rate) {
    char digits[32];
    double exact = double{rate};
    const auto end = std::to_chars(digits, digits + sizeof digits, rate).ptr;
    std::from_chars(digits, end, exact);
    return exact;
}

} // namespace

PlayerView view_of(const PlayerMirror &mirror) {
    const VantroStateInfo &modes = mirror.modes();
    const int32_t length = mirror.session().length;
    PlayerView view;
    view.playback_status = playback_status(modes.state);
    view.loop_status = loop_status(modes.repeat);
    view.rate = rate_of(modes.rate);
    view.shuffle = modes.shuffle == VANTRO_SHUFFLE_ON;
    view.volume = mirror.volume().muted != 0 ? 0.0 : mirror.volume().level / 100.0;
    view.song.path = no_track;
    if (const auto &current = mirror.current()) {
        view.song = current->song;
        // Only the service knows where the order of a shuffled session ends.
        const bool around = modes.repeat != VANTRO_REPEAT_OFF || (view.shuffle && length > 1);
        view.can_go_next = around || current->place.index + 1 < length;
        view.can_go_previous = around || current->place.index > 0;
        view.can_pause = true;
        view.can_seek = true;
    }
    return view;
}

std::vector<const char *> changed_properties(const PlayerView &before, const PlayerView &now) {
    const struct {
        const char *name;
        bool changed;
    } properties[] = {
        {"PlaybackStatus", before.playback_status != now.playback_status},
        {"LoopStatus", before.loop_status != now.loop_status},
        {"Rate", before.rate != now.rate},
        {"Shuffle", before.shuffle != now.shuffle},
        {"Metadata", before.song != now.song},
        {"Volume", before.volume != now.volume},
        {"CanGoNext", before.can_go_next != now.can_go_next},
        {"CanGoPrevious", before.can_go_previous != now.can_go_previous},
        {"CanPause", before.can_pause != now.can_pause},
        {"CanSeek", before.can_seek != now.can_seek},
    };
    std::vector<const char *> names;
    for (const auto &property : properties) {
        if (property.changed) {
            names.push_back(property.name);
        }
    }
    return names;
}

TrackWindow next_window(const TrackWindow &before, const PlayerMirror &mirror) {
    const auto &current = mirror.current();
    if (!current) {
        return {};
    }
    const TrackPlace place = current->place;
    const int32_t length = std::max(mirror.session().length, 0);
    const int32_t first_max = std::max(length - TrackWindow::tracks_max, 0);
    if (before.holds(place)) {
        const bool room_before = before.first == 0 || place.index - before.first >= margin;
        const bool room_behind =
            before.first == first_max || before.first + before.count - place.index > margin;
        if (room_before && room_behind) {
            return before;
        }
    }
    TrackWindow window;
    window.tsid = place.tsid;
    window.first = std::clamp(place.index - TrackWindow::tracks_max / 2, 0, first_max);
    window.count = std::min(length - window.first, TrackWindow::tracks_max);
    return window;
}

} // namespace vantro::mpris
