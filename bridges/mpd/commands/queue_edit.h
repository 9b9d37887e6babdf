// Functions that the commands for changing the queue share.
#ifndef VANTRO_BRIDGES_MPD_COMMANDS_QUEUE_EDIT_H
#define VANTRO_BRIDGES_MPD_COMMANDS_QUEUE_EDIT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/command.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {

// The place at which songs are added.
struct QueueTarget {
    uint32_t position = UINT32_MAX; // Beyond the end: after all others.
};

// @param argument of the command; "+N" and "-N" are relative to the current song. Empty: the end.
// @throws Ack if there is no such place.
QueueTarget target_of(Context &context, std::string_view argument);

// The place in the argument, at most `most`. @throws Ack.
uint32_t place_of(Context &context, std::string_view argument, uint32_t most);

// The places of songs in a queue, or in its draft. @throws Ack if there are none.
uint32_t checked_position(uint32_t size, std::string_view argument);
Range checked_range(uint32_t size, std::string_view argument);

template <typename AnyQueue>
uint32_t position_of(const AnyQueue &queue, std::string_view id) {
    const std::optional<uint32_t> position = queue.position_of(parse_unsigned(id));
    if (!position) {
        throw Ack(AckCode::no_exist, "no such song in the queue");
    }
    return *position;
}

// Adds nodes, one a line, each with its source. @return how many songs were added.
uint32_t add_nodes(Context &context, const std::string &nodes, const QueueTarget &target);

} // namespace vantro::mpd

#endif
