// What commands that change the queue share.
#ifndef VANTRO_BRIDGES_MPD_COMMANDS_QUEUE_EDIT_H
#define VANTRO_BRIDGES_MPD_COMMANDS_QUEUE_EDIT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "bridges/mpd/command.h"
#include "bridges/mpd/queue.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {

// Where songs are added.
struct QueueTarget {
    uint32_t position = UINT32_MAX; // Beyond the end: behind all others.
};

// @param argument as clients give it; "+N" and "-N" count from the current song. Empty: the end.
// @throws Ack where there is no such place.
QueueTarget target_of(Context &context, std::string_view argument);

// The place that the argument says, at most `most`. @throws Ack.
uint32_t place_of(Context &context, std::string_view argument, uint32_t most);

// The places of songs in the queue. @throws Ack where there are none.
uint32_t checked_position(const Queue &queue, std::string_view argument);
uint32_t position_of(const Queue &queue, std::string_view id);
Range checked_range(const Queue &queue, std::string_view argument);

// Adds nodes, one a line, each with its source. @return how many songs were added.
uint32_t add_nodes(Context &context, const std::string &nodes, const QueueTarget &target);

// Moves a range so that it begins at that place of the queue without it.
void move_range(Context &context, const Range &range, uint32_t to);

} // namespace vantro::mpd

#endif
