// The catalogue.
#include <cstdint>
#include <string>

#include <vantro/protocol.h>

#include "bridges/web/api/context.h"
#include "bridges/web/cover.h"
#include "bridges/web/json_writer.h"
#include "bridges/web/records_json.h"
#include "bridges/web/service_call.h"

namespace vantro::web {
namespace {

int32_t source_of(const Target &target) {
    return static_cast<int32_t>(target.number("source_id", 1, INT32_MAX));
}

// The part of a list that the request asks for. @param query as vantro_browse_metadata().
template <typename Query>
Response list(const Target &target, Query query) {
    const auto offset = static_cast<int32_t>(target.number("offset", 0, INT32_MAX, 0));
    const auto wanted =
        static_cast<int32_t>(target.number("count", 1, VANTRO_METADATA_PAGE_MAX, 100));
    MediaNode *nodes = nullptr;
    Metadata *metadata = nullptr;
    int count = wanted;
    if (query(offset, &count, &nodes, &metadata) != 0) {
        throw api_error_of(Failure::last());
    }
    const DescribedList page(nodes, metadata, count);
    JsonWriter json;
    json.begin_object();
    json.key("offset").number(offset);
    json.key("more").boolean(page.size() == static_cast<size_t>(wanted));
    json.key("nodes").begin_array();
    for (size_t i = 0; i < page.size(); ++i) {
        write_node(json, *page[i].node, page[i].metadata);
    }
    return Response::json(json.end_array().end_object().take());
}

} // namespace

Response list_sources(Context &context) {
    const List<MediaSource> sources = checked(context.player().sources());
    JsonWriter json;
    json.begin_object().key("sources").begin_array();
    for (const MediaSource &source : sources) {
        write_source(json, source);
    }
    return Response::json(json.end_array().end_object().take());
}

Response browse(Context &context) {
    const Target &target = context.request.target;
    const int32_t source = source_of(target);
    const auto found = target.query.find("id");
    const std::string id = found == target.query.end() ? "" : found->second;
    return list(target, [&](int32_t offset, int *count, MediaNode **nodes, Metadata **metadata) {
        return vantro_browse_metadata(context.player().handle(), source, id.c_str(), offset, count,
                                      nodes, metadata);
    });
}

Response search(Context &context) {
    const Target &target = context.request.target;
    const int32_t source = source_of(target);
    const std::string &term = target.text("q");
    const auto found = target.query.find("filter");
    const std::string filter = found == target.query.end() ? "" : found->second;
    return list(target, [&](int32_t offset, int *count, MediaNode **nodes, Metadata **metadata) {
        return vantro_search_metadata(context.player().handle(), source, filter.c_str(),
                                      term.c_str(), offset, count, nodes, metadata);
    });
}

Response show_cover(Context &context) {
    const Target &target = context.request.target;
    const MetadataPtr metadata =
        checked(context.player().metadata(source_of(target), target.text("id").c_str()));
    return cover_response(metadata ? text(metadata->artwork) : "", context.request.head.known_etag);
}

} // namespace vantro::web
