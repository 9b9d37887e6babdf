// The queue: the tracks of a player's session.
#include <algorithm>
#include <cstdint>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/protocol.h>

#include "bridges/web/api/context.h"
#include "bridges/web/json_writer.h"
#include "bridges/web/records_json.h"
#include "bridges/web/request_body.h"
#include "bridges/web/service_call.h"

namespace vantro::web {
namespace {

// A session may be replaced while it is read.
constexpr int attempts = 5;

// Adds a node in the service's form for several nodes: one a line, each with its source.
void add_line(std::string &lines, const NodeKey &key) {
    lines += fmt::format("{}{}:{}", lines.empty() ? "" : "\n", key.source, key.id);
}

std::string lines_of(const std::vector<NodeKey> &nodes) {
    std::string lines;
    for (const NodeKey &node : nodes) {
        add_line(lines, node);
    }
    return lines;
}

Response session_response(uint64_t tsid) {
    JsonWriter json;
    json.begin_object().key("session").text(std::to_string(tsid));
    return Response::json(json.end_object().take());
}

// Refuses a change if the queue is not the one that the client has seen: its places belong to other
// tracks then.
void check_session(Context &context, const RequestBody &body) {
    if (body.has("session") &&
        body.text("session") != std::to_string(context.link->session().tsid)) {
        throw ApiError(409, "queue_changed", "the queue has changed in the meantime");
    }
}

// Adds the nodes of the body.
Response extend(Context &context, Start where) {
    const RequestBody body(context.request.body, {"nodes"});
    const std::string lines = lines_of(body.nodes("nodes"));
    return session_response(checked(context.player().create_session(0, lines.c_str(), 0, where)));
}

Response clear(Context &context) {
    if (const VantroTrksessionInfo now = context.link->session();
        now.type != VANTRO_TRKSESSION_NONE) {
        checked(context.player().destroy_session(now.tsid));
    }
    return session_response(0);
}

// Sets the player's tracks to that order, each named by its present place. The current track goes
// on if it is still in the queue, else the next remaining one plays.
Response reorder(Context &context, const std::vector<uint32_t> &order) {
    const auto now = static_cast<uint32_t>(context.link->current().value_or(0));
    const std::vector<NodeKey> &tracks = context.link->tracks();
    std::string lines;
    std::vector<NodeKey> kept;
    int32_t index = 0;
    uint32_t nearest = UINT32_MAX;
    for (const uint32_t place : order) {
        const NodeKey &key = tracks.at(place);
        if (key.id.empty()) {
            continue; // it has left the catalogue, so no request can name it
        }
        if (place >= now && place < nearest) {
            nearest = place;
            index = static_cast<int32_t>(kept.size());
        }
        add_line(lines, key);
        kept.push_back(key);
    }
    if (kept.empty()) {
        return clear(context);
    }
    if (nearest == UINT32_MAX) {
        checked(context.player().stop()); // before the first track could be heard
    }
    const uint64_t tsid =
        checked(context.player().create_session(0, lines.c_str(), index, Start::keep));
    context.link->take_tracks(tsid, std::move(kept));
    return session_response(tsid);
}

// Places from..from+count of the queue; reads the queue.
struct Places {
    uint32_t from;
    uint32_t count;
    uint32_t size; // Of the queue.
};
Places places_of(Context &context, const RequestBody &body, const char *from) {
    check_session(context, body);
    const auto size = static_cast<int32_t>(context.link->tracks().size());
    if (size == 0) {
        throw ApiError(409, "nothing_to_play", "the queue is empty");
    }
    const int32_t first = body.number(from, 0, size - 1);
    const int32_t count = body.number_or("count", 1, size - first, 1);
    return {static_cast<uint32_t>(first), static_cast<uint32_t>(count),
            static_cast<uint32_t>(size)};
}

std::vector<uint32_t> order_of(uint32_t size) {
    std::vector<uint32_t> order(size);
    std::iota(order.begin(), order.end(), 0u);
    return order;
}

} // namespace

Response list_queue(Context &context) {
    const Target &target = context.request.target;
    const auto offset = static_cast<int32_t>(target.number("offset", 0, INT32_MAX, 0));
    const auto wanted =
        static_cast<int32_t>(target.number("count", 1, VANTRO_METADATA_PAGE_MAX, 100));
    for (int attempt = 1;; ++attempt) {
        const VantroTrksessionInfo session = context.link->session();
        MediaNode *nodes = nullptr;
        Metadata *metadata = nullptr;
        int count = wanted;
        if (session.type == VANTRO_TRKSESSION_NONE) {
            count = 0;
        } else if (vantro_get_trksession_tracks_metadata(context.player().handle(), session.tsid,
                                                         offset, &count, &nodes, &metadata) != 0) {
            const ApiError error = api_error_of(Failure::last());
            if (error.status() != 404 || attempt == attempts) {
                throw error;
            }
            continue;
        }
        const DescribedList page(nodes, metadata, count);
        JsonWriter json;
        json.begin_object();
        json.key("session").text(std::to_string(session.tsid));
        json.key("length").number(session.length);
        json.key("offset").number(offset);
        json.key("tracks").begin_array();
        for (size_t i = 0; i < page.size(); ++i) {
            write_node(json, *page[i].node, page[i].metadata);
        }
        return Response::json(json.end_array().end_object().take());
    }
}

Response load_queue(Context &context) {
    const RequestBody body(context.request.body, {"nodes", "index", "play"});
    const std::string lines = lines_of(body.nodes("nodes"));
    const int32_t index = body.number_or("index", 0, INT32_MAX, 0);
    const Start start = body.boolean_or("play", true) ? Start::playing : Start::held;
    const VantroTrksessionInfo before = context.link->session();
    const uint64_t tsid = checked(context.player().create_session(0, lines.c_str(), index, start));
    if (before.type == VANTRO_TRKSESSION_NODE && before.tsid != tsid) {
        // A player keeps only a few sessions. Another client may have destroyed this one.
        (void)context.player().destroy_session(before.tsid);
    }
    return session_response(tsid);
}

Response add_to_queue(Context &context) {
    return extend(context, Start::append);
}

Response insert_into_queue(Context &context) {
    return extend(context, Start::insert);
}

Response move_in_queue(Context &context) {
    const RequestBody body(context.request.body, {"session", "from", "count", "to"});
    const Places places = places_of(context, body, "from");
    const auto to = static_cast<uint32_t>(
        body.number("to", 0, static_cast<int32_t>(places.size - places.count)));
    std::vector<uint32_t> order = order_of(places.size);
    const auto begin = order.begin();
    const auto first = begin + places.from;
    const auto last = first + places.count;
    if (to < places.from) {
        std::rotate(begin + to, first, last);
    } else {
        std::rotate(first, last, begin + to + places.count);
    }
    return reorder(context, order);
}

Response remove_from_queue(Context &context) {
    const RequestBody body(context.request.body, {"session", "index", "count"});
    const Places places = places_of(context, body, "index");
    std::vector<uint32_t> order = order_of(places.size);
    const auto first = order.begin() + places.from;
    order.erase(first, first + places.count);
    return reorder(context, order);
}

Response clear_queue(Context &context) {
    const RequestBody nothing_wanted(context.request.body, {});
    return clear(context);
}

} // namespace vantro::web
