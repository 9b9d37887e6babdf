// A track session: an immutable list of songs for a player.
//
// Since it never changes, players, lists and requests share it without a lock.
#ifndef VANTRO_SERVICE_PLAYBACK_SESSION_H
#define VANTRO_SERVICE_PLAYBACK_SESSION_H

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "service/catalogue/catalogue.h"

namespace vantro::service::playback {

// Positions and durations are whole microseconds here: fractions would accumulate errors over ends
// of tracks, and could show a position one millisecond early. The least length prevents an endless
// loop when a song without length repeats.
inline int64_t length_of(const catalogue::QueuedSong &song) {
    return int64_t{1000} * std::max(song.duration_ms, 1);
}

struct TrackSession {
    // `list` has at least one song.
    TrackSession(uint64_t id, int32_t kind, std::vector<catalogue::QueuedSong> list)
        : tsid(id), type(kind), songs(std::move(list)) {
        songs.shrink_to_fit(); // it may live as long as the service
        for (const catalogue::QueuedSong &song : songs) {
            total += length_of(song);
        }
    }
    int32_t length() const { return static_cast<int32_t>(songs.size()); }

    const uint64_t tsid;
    const int32_t type; // VANTRO_TRKSESSION_*
    std::vector<catalogue::QueuedSong> songs;
    int64_t total = 0; // the length of all songs
};

using SessionPtr = std::shared_ptr<const TrackSession>;

} // namespace vantro::service::playback

#endif
