// Changes of the queue.
#include <algorithm>
#include <numeric>
#include <optional>
#include <random>
#include <vector>

#include <fmt/format.h>

#include <vantro/catalogue.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {
namespace {

using Order = std::vector<uint32_t>;

Order order_of(uint32_t size) {
    Order order(size);
    std::iota(order.begin(), order.end(), 0u);
    return order;
}

[[noreturn]] void refuse_position() {
    throw Ack(AckCode::argument, "no such position in the queue");
}

uint32_t position_of(const Queue &queue, std::string_view id) {
    const std::optional<uint32_t> position = queue.position_of(parse_unsigned(id));
    if (!position) {
        throw Ack(AckCode::no_exist, "no such song in the queue");
    }
    return *position;
}

// Where songs shall go. "+N" and "-N" count from the current one.
uint32_t target_of(Context &context, std::string_view argument, uint32_t most) {
    int64_t target = 0;
    if (argument.starts_with('+') || argument.starts_with('-')) {
        const std::optional<int32_t> current = context.partition.current();
        if (!current) {
            throw Ack(AckCode::player_sync, "there is no current song");
        }
        const int64_t distance = parse_unsigned(argument.substr(1));
        target = argument.starts_with('+') ? *current + 1 + distance : *current - distance;
    } else {
        target = parse_unsigned(argument);
    }
    if (target < 0 || target > most) {
        refuse_position();
    }
    return static_cast<uint32_t>(target);
}

// The nodes of a URI, one a line.
std::string nodes_of(Context &context, const std::string &uri) {
    Player &player = context.partition.player();
    const Catalogue::Place place = context.catalogue.find(player, uri);
    if (place.kind != Catalogue::Place::Kind::root) {
        return fmt::format("{}:{}", place.key.source, place.key.id);
    }
    std::string nodes;
    for (const Catalogue::Source &source : context.catalogue.sources(player)) {
        nodes += fmt::format("{}{}:{}", nodes.empty() ? "" : "\n", source.id, folders_menu);
    }
    return nodes;
}

void move_range(Context &context, const Range &range, uint32_t to) {
    Order order = order_of(context.partition.queue().size());
    const auto begin = order.begin();
    if (to < range.begin) {
        std::rotate(begin + to, begin + range.begin, begin + range.end);
    } else {
        std::rotate(begin + range.begin, begin + range.end, begin + to + (range.end - range.begin));
    }
    context.partition.keep(order);
}

// Adds what the URI names. @return the place of the first song that was added.
uint32_t add(Context &context, Arguments arguments) {
    Partition &partition = context.partition;
    const uint32_t before = partition.queue().size();
    uint32_t target = before;
    if (arguments.size() > 1) {
        target = target_of(context, arguments[1], before);
    }
    partition.append(nodes_of(context, arguments[0]));
    const uint32_t after = partition.queue().size();
    if (target < before && before < after) {
        move_range(context, {before, after}, target);
    }
    return target;
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

void remove(Context &context, const Range &range) {
    Order order = order_of(context.partition.queue().size());
    order.erase(order.begin() + range.begin, order.begin() + range.end);
    context.partition.keep(order);
}

void swap(Context &context, uint32_t one, uint32_t other) {
    Order order = order_of(context.partition.queue().size());
    if (one >= order.size() || other >= order.size()) {
        refuse_position();
    }
    std::swap(order[one], order[other]);
    context.partition.keep(order);
}

} // namespace

TaskPtr run_add(Context &context, Arguments arguments) {
    add(context, arguments);
    return nullptr;
}

TaskPtr run_addid(Context &context, Arguments arguments) {
    Player &player = context.partition.player();
    if (context.catalogue.find(player, arguments[0]).kind != Catalogue::Place::Kind::song) {
        throw Ack(AckCode::argument, fmt::format("no song: \"{}\"", arguments[0]));
    }
    const uint32_t position = add(context, arguments);
    const Queue &queue = context.partition.queue();
    if (position < queue.size()) {
        context.reply.number("Id", queue.entries()->at(position).id);
    }
    return nullptr;
}

TaskPtr run_clear(Context &context, Arguments) {
    context.partition.clear();
    return nullptr;
}

TaskPtr run_delete(Context &context, Arguments arguments) {
    const Range range = checked_range(context.partition.queue(), arguments[0]);
    if (range.begin < range.end) {
        remove(context, range);
    }
    return nullptr;
}

TaskPtr run_deleteid(Context &context, Arguments arguments) {
    const uint32_t position = position_of(context.partition.queue(), arguments[0]);
    remove(context, {position, position + 1});
    return nullptr;
}

TaskPtr run_move(Context &context, Arguments arguments) {
    const Queue &queue = context.partition.queue();
    const Range range = checked_range(queue, arguments[0]);
    const uint32_t left = queue.size() - (range.end - range.begin);
    const uint32_t to = target_of(context, arguments[1], left);
    if (range.begin < range.end && to != range.begin) {
        move_range(context, range, to);
    }
    return nullptr;
}

TaskPtr run_moveid(Context &context, Arguments arguments) {
    const Queue &queue = context.partition.queue();
    const uint32_t position = position_of(queue, arguments[0]);
    const uint32_t to = target_of(context, arguments[1], queue.size() - 1);
    if (to != position) {
        move_range(context, {position, position + 1}, to);
    }
    return nullptr;
}

TaskPtr run_swap(Context &context, Arguments arguments) {
    swap(context, parse_unsigned(arguments[0]), parse_unsigned(arguments[1]));
    return nullptr;
}

TaskPtr run_swapid(Context &context, Arguments arguments) {
    const Queue &queue = context.partition.queue();
    swap(context, position_of(queue, arguments[0]), position_of(queue, arguments[1]));
    return nullptr;
}

// A new order of the songs themselves; `random` is the order in which they are played.
TaskPtr run_shuffle(Context &context, Arguments arguments) {
    const Queue &queue = context.partition.queue();
    const Range range =
        arguments.empty() ? Range{0, queue.size()} : checked_range(queue, arguments[0]);
    if (range.end - range.begin < 2) {
        return nullptr;
    }
    Order order = order_of(queue.size());
    std::mt19937 generator(std::random_device{}());
    std::shuffle(order.begin() + range.begin, order.begin() + range.end, generator);
    context.partition.keep(order);
    return nullptr;
}

} // namespace vantro::mpd
