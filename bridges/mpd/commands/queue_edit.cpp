#include "bridges/mpd/commands/queue_edit.h"

#include <algorithm>
#include <optional>

#include "bridges/mpd/partition.h"

namespace vantro::mpd {
namespace {

[[noreturn]] void refuse_position() {
    throw Ack(AckCode::argument, "no such position in the queue");
}

} // namespace

uint32_t checked_position(uint32_t size, std::string_view argument) {
    const uint32_t position = parse_unsigned(argument);
    if (position >= size) {
        refuse_position();
    }
    return position;
}

Range checked_range(uint32_t size, std::string_view argument) {
    Range range = parse_range(argument);
    const bool open = argument.find(':') != std::string_view::npos;
    if (range.begin > size || (!open && range.begin == size)) {
        refuse_position();
    }
    range.end = std::min(range.end, size);
    return range;
}

uint32_t place_of(Context &context, std::string_view argument, uint32_t most) {
    int64_t place = 0;
    if (argument.starts_with('+') || argument.starts_with('-')) {
        context.partition.commit();
        const std::optional<int32_t> current = context.partition.current();
        if (!current) {
            throw Ack(AckCode::player_sync, "there is no current song");
        }
        const int64_t distance = parse_unsigned(argument.substr(1));
        place = argument.starts_with('+') ? *current + 1 + distance : *current - distance;
    } else {
        place = parse_unsigned(argument);
    }
    if (place < 0 || place > most) {
        refuse_position();
    }
    return static_cast<uint32_t>(place);
}

QueueTarget target_of(Context &context, std::string_view argument) {
    if (argument.empty()) {
        return {};
    }
    return {place_of(context, argument, context.partition.draft().size())};
}

uint32_t add_nodes(Context &context, const std::string &nodes, const QueueTarget &target) {
    Partition &partition = context.partition;
    partition.commit();
    const uint32_t before = partition.queue().size();
    partition.append(nodes);
    const uint32_t after = partition.queue().size();
    if (after <= before) {
        return 0; // another client has changed the queue meanwhile
    }
    if (target.position < before) {
        partition.draft().move({before, after}, target.position);
        partition.commit();
    }
    return after - before;
}

} // namespace vantro::mpd
