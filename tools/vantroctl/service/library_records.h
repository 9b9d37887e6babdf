// Turns the library's records into the tool's. An absent text is empty.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_LIBRARY_RECORDS_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_LIBRARY_RECORDS_H

#include <cstdint>
#include <optional>
#include <string>

#include <vantro/player.h>

#include "tools/vantroctl/model/nodes.h"
#include "tools/vantroctl/model/player_event.h"
#include "tools/vantroctl/model/player_status.h"

namespace vantro::ctl {

inline std::string text_of(const char *text) {
    return text ? text : "";
}

// @param node, metadata NULL if the service has none.
TrackStatus track_of(int32_t index, const MediaNode *node, const Metadata *metadata);

Source source_of(const MediaSource &record);

// The event, without the player's name. If a change of the state object changes no mode, the
// event's previous modes are the same.
// @return nothing if nothing is new.
std::optional<PlayerEvent> player_event_of(const VantroEvent &record);

} // namespace vantro::ctl

#endif
