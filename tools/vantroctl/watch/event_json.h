// An event as a line of JSON; docs/vantroctl.md describes every member.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_EVENT_JSON_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_EVENT_JSON_H

#include <string>

#include "tools/vantroctl/model/player_event.h"

namespace vantro::ctl {

std::string json_event(const PlayerEvent &event);

} // namespace vantro::ctl

#endif
