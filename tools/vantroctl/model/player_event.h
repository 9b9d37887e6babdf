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
        object,  // A change of an object that is none of the above.
        gone,    // The service is gone. `back` follows once it is there again.
        waiting, // It is not back yet, for a reason that was not reported before.
        back     // The service is there again. The full picture follows.
    };

    Kind kind = Kind::object;
    std::string player = {};
    bool initial = false; // Part of the full picture, and no change.
    std::chrono::system_clock::time_point time = std::chrono::system_clock::now();
    std::chrono::steady_clock::time_point at = std::chrono::steady_clock::now(); // The same.

    // A member is set only for the kinds named beside it.
    PlayerModes modes = {};                    // state, error
    PlayerModes previous = {};                 // state
    std::optional<SessionStatus> session = {}; // session; none: the player has none
    std::optional<TrackStatus> track = {};     // track; none: the player has none
    int32_t position_ms = 0;                   // position
    Source source = {};                        // source
    bool source_gone = false;                  // source: it is gone
    int32_t code = 0;                          // error: as the service numbers it
    std::string object = {};                   // object: its name
    std::vector<std::pair<std::string, std::string>> attributes = {}; // object: what changed
    std::string reason = {};                                          // waiting
};

} // namespace vantro::ctl

#endif
