// Decides which changes replace an older, unreported change of the same object.
#ifndef VANTRO_EVENTS_REPLACEMENT_H
#define VANTRO_EVENTS_REPLACEMENT_H

#include <string_view>

#include "events/queue.h"

namespace vantro::events {

// The entry for a change of an object, removed from its list. A new position or track replaces an
// unreported one, since only the newest matters. @return null if there is no memory.
ObjectEntry *entry_for(EventQueue &queue, std::string_view name);

} // namespace vantro::events

#endif
