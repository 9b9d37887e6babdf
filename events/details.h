// The details of an event.
#ifndef VANTRO_EVENTS_DETAILS_H
#define VANTRO_EVENTS_DETAILS_H

#include <vantro/player.h>

namespace vantro::events {

// Sets type and details of an event that has its object's name and dictionary.
void filldetails(VantroEvent *event);

} // namespace vantro::events

#endif
