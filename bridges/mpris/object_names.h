// The names of players, tracks and playlists on the bus.
#ifndef VANTRO_BRIDGES_MPRIS_OBJECT_NAMES_H
#define VANTRO_BRIDGES_MPRIS_OBJECT_NAMES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantro::mpris {

// The path that means "no track".
inline constexpr const char *no_track = "/org/mpris/MediaPlayer2/TrackList/NoTrack";

// The bus name of a player. Letters, digits and "_" stay; any other byte, and a digit that begins
// the name, becomes "-" and its two hexadecimal digits, so no two players share a bus name.
std::string bus_name_of(std::string_view player);

// A place in a track session. A song that is twice in a session has two.
struct TrackPlace {
    uint64_t tsid = 0;
    int32_t index = 0;

    bool operator==(const TrackPlace &) const = default;
};

std::string path_of(const TrackPlace &place);
std::optional<TrackPlace> track_place_of(std::string_view path);

// A playlist, as a node of its media source.
struct PlaylistNode {
    int32_t ms_id = 0;
    std::string node_id;

    bool operator==(const PlaylistNode &) const = default;
};

std::string path_of(const PlaylistNode &playlist);
std::optional<PlaylistNode> playlist_of(const std::string &path);

} // namespace vantro::mpris

#endif
