// Changes of the queue.
#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include <fmt/format.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/commands/queue_edit.h"
#include "bridges/mpd/partition.h"

namespace vantro::mpd {
namespace {

using Order = std::vector<uint32_t>;

Order order_of(uint32_t size) {
    Order order(size);
    std::iota(order.begin(), order.end(), 0u);
    return order;
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

// Adds what the URI names. @return the place of the first song that was added.
uint32_t add(Context &context, Arguments arguments) {
    const QueueTarget target =
        target_of(context, arguments.size() > 1 ? std::string_view(arguments[1]) : "");
    const uint32_t before = context.partition.queue().size();
    add_nodes(context, nodes_of(context, arguments[0]), target);
    return std::min(target.position, before);
}

void remove(Context &context, const Range &range) {
    Order order = order_of(context.partition.queue().size());
    order.erase(order.begin() + range.begin, order.begin() + range.end);
    context.partition.keep(order);
}

void swap(Context &context, uint32_t one, uint32_t other) {
    Order order = order_of(context.partition.queue().size());
    std::swap(order.at(one), order.at(other));
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
    const uint32_t to = place_of(context, arguments[1], left);
    if (range.begin < range.end && to != range.begin) {
        move_range(context, range, to);
    }
    return nullptr;
}

TaskPtr run_moveid(Context &context, Arguments arguments) {
    const Queue &queue = context.partition.queue();
    const uint32_t position = position_of(queue, arguments[0]);
    const uint32_t to = place_of(context, arguments[1], queue.size() - 1);
    if (to != position) {
        move_range(context, {position, position + 1}, to);
    }
    return nullptr;
}

TaskPtr run_swap(Context &context, Arguments arguments) {
    const Queue &queue = context.partition.queue();
    swap(context, checked_position(queue, arguments[0]), checked_position(queue, arguments[1]));
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
