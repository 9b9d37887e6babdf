// Change texts: reading one, and applying one to the dictionary that mirrors an object.
#ifndef VANTRO_EVENTS_CHANGES_H
#define VANTRO_EVENTS_CHANGES_H

#include <sys/types.h>

#include <vantro/platform/dictionary.h>

#include "player/handle.h"

namespace vantro::events {

// Reads the next change text into the handle's read buffer, and puts a NUL behind it.
// @return its length, 0 where there is none, or -1 with errno.
ssize_t readchange(const VantroHandle *handle, int fd);

// Applies a change text, which is written to. What can be applied is, also where the call fails,
// but for what comes behind a line that cannot be parsed.
// @param dict the dictionary, or null; receives what is to be used from then on: null where the
//   object was deleted.
// @return 0, or -1 with errno.
int update_dict(mosk_dict **dict, char *text);

} // namespace vantro::events

#endif
