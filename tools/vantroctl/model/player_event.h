// Something that happened to a player, as the tool keeps it.
#ifndef VANTRO_TOOLS_VANTROCTL_MODEL_PLAYER_EVENT_H
#define VANTRO_TOOLS_VANTROCTL_MODEL_PLAYER_EVENT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/vantroctl/model/nodes.h"
#include "tools/vantroctl/model/player_status.h"

namespace vantro::ctl {

struct PlayerEvent {
    enum class Kind {
        state,
        session,
        track,
        position,
        source,
        error,
        object,  // A change of another object.
        gone,    // The service is gone. `back` follows when it returns.
        waiting, // The service is not back yet, for a reason not reported before.
        back     // The service has returned. The complete state follows.
    };

    Kind kind = Kind::object;
    std::string player = {};
    bool initial = false; // Part of the complete state, and not a change.
    std::chrono::system_clock::time_point time = std::chrono::system_clock::now();
    std::chrono::steady_clock::time_point at = std::chrono::steady_clock::now(); // The same time.

    // A member is set only for the kinds named beside it.
    PlayerModes modes = {};                    // state, error
    PlayerModes previous = {};                 // state
    std::optional<SessionStatus> session = {}; // session; none: the player has none
    std::optional<TrackStatus> track = {};     // track; none: the player has none
    int32_t position_ms = 0;                   // position
    Source source = {};                        // source
    bool source_gone = false;                  // source: the source is gone
    int32_t code = 0;                          // error: the service's number
    std::string object = {};                   // object: its name
    std::vector<std::pair<std::string, std::string>> attributes = {}; // object: what changed
    std::string reason = {};                                          // waiting
};

} // namespace vantro::ctl

#endif
