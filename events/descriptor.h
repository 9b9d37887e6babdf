// The descriptor that tells an application's event loop that there is an event to get.
#ifndef VANTRO_EVENTS_DESCRIPTOR_H
#define VANTRO_EVENTS_DESCRIPTOR_H

#include "events/queue.h"
#include "player/handle.h"

namespace vantro::events {

// Whether the next vantro_event_get() has something to report. Reads ahead to find out, and keeps
// the result for the next call, since the application still uses the current event.
bool has_next(const VantroHandle *handle, EventQueue &queue) REQUIRES(handle->lock);

// Makes the descriptor readable if the next vantro_event_get() has something to report, and not
// readable otherwise. A later change makes it readable by itself. Keeps errno.
// @param succeeded whether the current call for events succeeded.
// @return whether it is readable.
bool settle(const VantroHandle *handle, EventQueue &queue, bool succeeded) REQUIRES(handle->lock);

} // namespace vantro::events

#endif
