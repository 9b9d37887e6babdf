// Lists of nodes that clients request in parts.
#ifndef VANTRO_BRIDGES_WEB_API_NODE_LIST_H
#define VANTRO_BRIDGES_WEB_API_NODE_LIST_H

#include <cstdint>
#include <utility>

#include <vantro/protocol.h>

#include "bridges/web/http.h"
#include "bridges/web/json_writer.h"
#include "bridges/web/records_json.h"
#include "bridges/web/service_call.h"

namespace vantro::web {

// The part of the list that the target requests. @param query like vantro_browse_metadata().
// @throws ApiError.
template <typename Query>
Response node_list(const Target &target, Query query) {
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

} // namespace vantro::web

#endif
