// Reads change texts, and applies them to the dictionary that mirrors an object.
#ifndef VANTRO_EVENTS_CHANGES_H
#define VANTRO_EVENTS_CHANGES_H

#include <cstddef>
#include <optional>
#include <string_view>

#include <sys/types.h>

#include <vantro/platform/dictionary.h>

#include "events/queue.h"
#include "player/handle.h"

namespace vantro::events {

// Reads the next change text into the handle's read buffer, and adds a NUL.
// @return its length, 0 if there is none, or -1 with errno.
ssize_t readchange(const VantroHandle *handle, int fd) REQUIRES(handle->lock);

// Reads the next change of one of the queue's files, or the one that is still to be applied, into
// the handle's read buffer. Parsing overwrites a text, so the queue keeps a copy until the change
// was applied.
// @return as readchange().
ssize_t next_change(const VantroHandle *handle, EventQueue &queue, int fd) REQUIRES(handle->lock);

// The object whose events report the player's state, and which has its own file.
inline constexpr std::string_view state_object = "state";

// The object's name in the first object line of a text, if there is such a line.
std::optional<std::string_view> object_of(std::string_view text);

// Most bytes that one call reads, including some overhead for each text. This is more than a
// publisher keeps for a reader, so only a service that publishes as fast as it is read reaches the
// limit. Without the limit, such a service could prevent the call from returning, and fill the
// memory.
inline constexpr size_t pass_bytes_max = size_t{4} << 20;
inline constexpr size_t text_overhead = 16;

// Applies a change text, and overwrites the text. If the call fails, the lines that could be
// applied are applied, except those after a line that cannot be parsed.
// @param dict the dictionary, or null; receives the dictionary to use from then on: null if the
//   object was deleted.
// @return 0, or -1 with errno.
int update_dict(mosk_dict **dict, char *text);

} // namespace vantro::events

#endif
