// A command that was carried out.
#ifndef VANTRO_TOOLS_VANTROCTL_MODEL_COMMAND_RESULT_H
#define VANTRO_TOOLS_VANTROCTL_MODEL_COMMAND_RESULT_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/vantroctl/model/player_status.h"

namespace vantro::ctl {

// A command that was carried out, and what it set.
struct CommandResult {
    std::string command = {};
    std::optional<int32_t> position_ms = std::nullopt;
    std::optional<float> rate = std::nullopt;
    std::optional<bool> shuffle = std::nullopt;
    std::optional<int32_t> repeat = std::nullopt;
    std::optional<int32_t> volume = std::nullopt;
    std::optional<bool> muted = std::nullopt;
    std::optional<int32_t> index = std::nullopt;     // Of a track, from 0.
    std::optional<int64_t> session = std::nullopt;   // Id of a new track session.
    std::optional<TrackStatus> track = std::nullopt; // The current track, if the verb changes it.
    std::optional<SessionStatus> tracks = std::nullopt;
    std::optional<int32_t> saved = std::nullopt; // Tracks of a playlist.
    std::optional<int64_t> found = std::nullopt; // Songs found, if the command searched for words.
    std::optional<bool> scanning = std::nullopt; // Whether songs may be missing, since a scan runs.
};

} // namespace vantro::ctl

#endif
