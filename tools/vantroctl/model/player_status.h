// The status of a player.
#ifndef VANTRO_TOOLS_VANTROCTL_MODEL_PLAYER_STATUS_H
#define VANTRO_TOOLS_VANTROCTL_MODEL_PLAYER_STATUS_H

#include <cstdint>
#include <optional>
#include <string>

namespace vantro::ctl {

// The current track. A text is empty, and a number 0, if the service has none.
struct TrackStatus {
    int32_t index = 0; // In the session, from 0.
    std::string title; // The tag, or else the name of the track in its source.
    std::string artist;
    std::string album;
    std::string genre;
    std::string year;
    int32_t disc = 0;
    int32_t number = 0; // On the disc.
    int32_t duration_ms = 0;
    std::string node_id;
    std::string node_name;
    int32_t source_id = 0;
};

// The current track session.
struct SessionStatus {
    int64_t id = 0;
    int32_t type = 0;
    int32_t length = 0; // Tracks in it.
};

// State and modes of a player, by the service's numbers.
struct PlayerModes {
    int32_t state = 0;
    float rate = 0;
    int32_t repeat = 0;
    int32_t shuffle = 0;

    bool operator==(const PlayerModes &) const = default;
};

struct Volume {
    int32_t level = 0; // 0 to 100.
    bool muted = false;
};

struct PlayerStatus : PlayerModes {
    std::string player;
    int32_t position_ms = 0;
    std::optional<TrackStatus> track;
    std::optional<SessionStatus> session;
    std::optional<Volume> volume = {}; // Empty if the service has no volume.
};

} // namespace vantro::ctl

#endif
