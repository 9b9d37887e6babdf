// Which changes replace an older one of the same object that is not reported yet.
#ifndef VANTRO_EVENTS_REPLACEMENT_H
#define VANTRO_EVENTS_REPLACEMENT_H

#include <string_view>

#include "events/queue.h"

namespace vantro::events {

// The entry for a change of an object, removed from its list. A new position or track replaces one
// that is not reported yet, since only the newest matters. @return null for want of memory.
ObjectEntry *entry_for(EventQueue &queue, std::string_view name);

} // namespace vantro::events

#endif
