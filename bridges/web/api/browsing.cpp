// The catalogue.
#include <cstdint>
#include <string>

#include "bridges/web/api/context.h"
#include "bridges/web/api/node_list.h"
#include "bridges/web/cover.h"
#include "bridges/web/json_writer.h"
#include "bridges/web/records_json.h"
#include "bridges/web/service_call.h"

namespace vantro::web {
namespace {

int32_t source_of(const Target &target) {
    return static_cast<int32_t>(target.number("source_id", 1, INT32_MAX));
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
    return node_list(target,
                     [&](int32_t offset, int *count, MediaNode **nodes, Metadata **metadata) {
                         return vantro_browse_metadata(context.player().handle(), source,
                                                       id.c_str(), offset, count, nodes, metadata);
                     });
}

Response search(Context &context) {
    const Target &target = context.request.target;
    const int32_t source = source_of(target);
    const std::string &term = target.text("q");
    const auto found = target.query.find("filter");
    const std::string filter = found == target.query.end() ? "" : found->second;
    return node_list(
        target, [&](int32_t offset, int *count, MediaNode **nodes, Metadata **metadata) {
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
