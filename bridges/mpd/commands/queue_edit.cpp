#include "bridges/mpd/commands/queue_edit.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <vector>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/partition.h"

namespace vantro::mpd {
namespace {

[[noreturn]] void refuse_position() {
    throw Ack(AckCode::argument, "no such position in the queue");
}

} // namespace

uint32_t checked_position(const Queue &queue, std::string_view argument) {
    const uint32_t position = parse_unsigned(argument);
    if (position >= queue.size()) {
        refuse_position();
    }
    return position;
}

uint32_t position_of(const Queue &queue, std::string_view id) {
    const std::optional<uint32_t> position = queue.position_of(parse_unsigned(id));
    if (!position) {
        throw Ack(AckCode::no_exist, "no such song in the queue");
    }
    return *position;
}

Range checked_range(const Queue &queue, std::string_view argument) {
    Range range = parse_range(argument);
    const bool open = argument.find(':') != std::string_view::npos;
    if (range.begin > queue.size() || (!open && range.begin == queue.size())) {
        refuse_position();
    }
    range.end = std::min(range.end, queue.size());
    return range;
}

uint32_t place_of(Context &context, std::string_view argument, uint32_t most) {
    int64_t place = 0;
    if (argument.starts_with('+') || argument.starts_with('-')) {
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
    return {place_of(context, argument, context.partition.queue().size())};
}

uint32_t add_nodes(Context &context, const std::string &nodes, const QueueTarget &target) {
    Partition &partition = context.partition;
    const uint32_t before = partition.queue().size();
    partition.append(nodes);
    const uint32_t after = partition.queue().size();
    if (after <= before) {
        return 0; // another client has changed the queue meanwhile
    }
    if (target.position < before) {
        move_range(context, {before, after}, target.position);
    }
    return after - before;
}

void move_range(Context &context, const Range &range, uint32_t to) {
    std::vector<uint32_t> order(context.partition.queue().size());
    std::iota(order.begin(), order.end(), 0u);
    const auto begin = order.begin();
    if (to < range.begin) {
        std::rotate(begin + to, begin + range.begin, begin + range.end);
    } else {
        std::rotate(begin + range.begin, begin + range.end, begin + to + (range.end - range.begin));
    }
    context.partition.keep(order);
}

} // namespace vantro::mpd
