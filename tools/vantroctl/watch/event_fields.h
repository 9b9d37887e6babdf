// The fields of templates that show an event.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_EVENT_FIELDS_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_EVENT_FIELDS_H

#include <string>
#include <string_view>
#include <vector>

#include "tools/vantroctl/model/player_event.h"
#include "tools/vantroctl/model/player_status.h"

namespace vantro::ctl {

// The fields of the player and of the event.
std::vector<std::string_view> event_fields();

// @param words the event's text, as in a line.
// @param after the player's status after the event.
std::string event_field(const PlayerEvent &event, const std::string &words,
                        const PlayerStatus &after, std::string_view name);

} // namespace vantro::ctl

#endif
