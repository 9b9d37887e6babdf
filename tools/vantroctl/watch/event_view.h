// The text of an event, for a line.
#ifndef VANTRO_TOOLS_VANTROCTL_WATCH_EVENT_VIEW_H
#define VANTRO_TOOLS_VANTROCTL_WATCH_EVENT_VIEW_H

#include <string>

#include "tools/vantroctl/model/player_event.h"
#include "tools/vantroctl/watch/player_mirror.h"

namespace vantro::ctl {

// "state", "session" and so on: the kind as the tool prints it.
const char *event_name(PlayerEvent::Kind kind);

// The event's text, clean and without the player's name and the kind: "playing", "0:20 of 3:40".
// @param before the player's state before the event.
std::string event_words(const PlayerEvent &event, const PlayerMirror &before);

} // namespace vantro::ctl

#endif
