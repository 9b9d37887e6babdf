// Reads change texts, and applies them to the dictionary that mirrors an object.
#ifndef VANTRO_EVENTS_CHANGES_H
#define VANTRO_EVENTS_CHANGES_H

#include <sys/types.h>

#include <vantro/platform/dictionary.h>

#include "player/handle.h"

namespace vantro::events {

// Reads the next change text into the handle's read buffer, and adds a NUL.
// @return its length, 0 if there is none, or -1 with errno.
ssize_t readchange(const VantroHandle *handle, int fd) REQUIRES(handle->lock);

// Applies a change text, and overwrites the text. If the call fails, the lines that could be
// applied are applied, except those after a line that cannot be parsed.
// @param dict the dictionary, or null; receives the dictionary to use from then on: null if the
//   object was deleted.
// @return 0, or -1 with errno.
int update_dict(mosk_dict **dict, char *text);

} // namespace vantro::events

#endif
