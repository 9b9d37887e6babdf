// The attributes of "state", decoded.
#ifndef VANTRO_EVENTS_STATE_ATTRIBUTES_H
#define VANTRO_EVENTS_STATE_ATTRIBUTES_H

#include <cstdint>

#include <vantro/platform/dictionary.h>
#include <vantro/player.h>

namespace vantro::events {

// Sets the event's rate and modes from the attributes of "state".
// @return the state in the attributes; if they have none, the state that the event has.
int32_t apply_state(const mosk_dict *dict, VantroEvent &event);

} // namespace vantro::events

#endif
