// Changes of the queue.
#include <string>

#include <fmt/format.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/commands/queue_edit.h"
#include "bridges/mpd/partition.h"

namespace vantro::mpd {
namespace {

// The nodes of a URI, one a line.
std::string nodes_of(Context &context, const Catalogue::Place &place) {
    if (place.kind != Catalogue::Place::Kind::root) {
        return fmt::format("{}:{}", place.key.source, place.key.id);
    }
    std::string nodes;
    for (const Catalogue::Source &source : context.catalogue.sources(context.partition.player())) {
        nodes += fmt::format("{}{}:{}", nodes.empty() ? "" : "\n", source.id, folders_menu);
    }
    return nodes;
}

// @return the song's id.
uint32_t add_song(Context &context, const NodeKey &key, const QueueTarget &target) {
    const uint32_t id = context.partition.draft_song(key);
    QueueDraft &draft = context.partition.draft();
    const uint32_t last = draft.size() - 1;
    if (target.position < last) {
        draft.move({last, last + 1}, target.position);
    }
    return id;
}

QueueTarget target_in(Context &context, Arguments arguments) {
    return target_of(context, arguments.size() > 1 ? std::string_view(arguments[1]) : "");
}

} // namespace

TaskPtr run_add(Context &context, Arguments arguments) {
    const Catalogue::Place place = context.catalogue.find(context.partition.player(), arguments[0]);
    const QueueTarget target = target_in(context, arguments);
    if (place.kind == Catalogue::Place::Kind::song) {
        add_song(context, place.key, target);
    } else {
        add_nodes(context, nodes_of(context, place), target);
    }
    return nullptr;
}

TaskPtr run_addid(Context &context, Arguments arguments) {
    const Catalogue::Place place = context.catalogue.find(context.partition.player(), arguments[0]);
    if (place.kind != Catalogue::Place::Kind::song) {
        throw Ack(AckCode::no_exist, fmt::format("no song: \"{}\"", arguments[0]));
    }
    const QueueTarget target = target_in(context, arguments);
    context.reply.number("Id", add_song(context, place.key, target));
    return nullptr;
}

TaskPtr run_clear(Context &context, Arguments) {
    context.partition.clear();
    return nullptr;
}

TaskPtr run_delete(Context &context, Arguments arguments) {
    QueueDraft &draft = context.partition.draft();
    const Range range = checked_range(draft.size(), arguments[0]);
    if (range.begin < range.end) {
        draft.erase(range);
    }
    return nullptr;
}

TaskPtr run_deleteid(Context &context, Arguments arguments) {
    QueueDraft &draft = context.partition.draft();
    const uint32_t position = position_of(draft, arguments[0]);
    draft.erase({position, position + 1});
    return nullptr;
}

TaskPtr run_move(Context &context, Arguments arguments) {
    const uint32_t size = context.partition.draft().size();
    const Range range = checked_range(size, arguments[0]);
    const uint32_t to = place_of(context, arguments[1], size - (range.end - range.begin));
    if (range.begin < range.end && to != range.begin) {
        context.partition.draft().move(range, to);
    }
    return nullptr;
}

TaskPtr run_moveid(Context &context, Arguments arguments) {
    const uint32_t position = position_of(context.partition.draft(), arguments[0]);
    const uint32_t to = place_of(context, arguments[1], context.partition.draft().size() - 1);
    if (to != position) {
        context.partition.draft().move({position, position + 1}, to);
    }
    return nullptr;
}

TaskPtr run_swap(Context &context, Arguments arguments) {
    QueueDraft &draft = context.partition.draft();
    draft.swap(checked_position(draft.size(), arguments[0]),
               checked_position(draft.size(), arguments[1]));
    return nullptr;
}

TaskPtr run_swapid(Context &context, Arguments arguments) {
    QueueDraft &draft = context.partition.draft();
    draft.swap(position_of(draft, arguments[0]), position_of(draft, arguments[1]));
    return nullptr;
}

// Reorders the songs of the queue; `random` changes only the order in which they are played.
TaskPtr run_shuffle(Context &context, Arguments arguments) {
    QueueDraft &draft = context.partition.draft();
    const Range range =
        arguments.empty() ? Range{0, draft.size()} : checked_range(draft.size(), arguments[0]);
    if (range.end - range.begin > 1) {
        draft.shuffle(range);
    }
    return nullptr;
}

TaskPtr run_prio(Context &, Arguments) {
    throw Ack(AckCode::argument, "the player's queue has no priorities");
}

} // namespace vantro::mpd
