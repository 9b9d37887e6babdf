// The saved playlists.
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>

#include <vantro/catalogue.h>

#include "bridges/web/api/context.h"
#include "bridges/web/api/node_list.h"
#include "bridges/web/json_writer.h"
#include "bridges/web/request_body.h"
#include "bridges/web/service_call.h"

namespace vantro::web {
namespace {

constexpr const char *playlists_menu = "playlists";

ApiError playlist_error(const Failure &failure) {
    if (failure.why() != Reason::refused) {
        return api_error_of(failure);
    }
    switch (failure.number) {
    case EINVAL:
        return bad_request(
            "a name is 1 to 200 bytes of UTF-8, with no slash, no control characters "
            "and no dot at the start");
    case ENOENT:
        return {404, "not_found", "there is no saved playlist of that name"};
    case EEXIST:
        return {409, "playlist_exists", "a playlist of that name exists"};
    case EMSGSIZE:
        return {409, "playlist_too_long", "the queue has more songs than a playlist may have"};
    case EDQUOT:
        return {409, "too_many_playlists", "the limit of saved playlists is reached"};
    case ENOSPC:
        return {409, "disk_full", "the service's disk is full"};
    case EACCES:
    case EROFS:
        return {409, "not_writable", "the service may not write to its folder of playlists"};
    default:
        return api_error_of(failure);
    }
}

// The source of the saved playlists, which exists once a playlist was saved.
std::optional<int32_t> saved_source(Context &context) {
    for (const MediaSource &source : checked(context.player().sources())) {
        if (source.type == VANTRO_SOURCE_PLAYLISTS) {
            return source.id;
        }
    }
    return std::nullopt;
}

} // namespace

Response list_playlists(Context &context) {
    const std::optional<int32_t> source = saved_source(context);
    return node_list(context.request.target, [&](int32_t offset, int *count, MediaNode **nodes,
                                                 Metadata **metadata) {
        if (!source) {
            *count = 0;
            return 0;
        }
        return vantro_browse_metadata(context.player().handle(), *source, playlists_menu, offset,
                                      count, nodes, metadata);
    });
}

Response save_playlist(Context &context) {
    const RequestBody body(context.request.body, {"name", "replace"});
    const std::string name = body.text("name");
    const Result<int> saved =
        context.player().save_playlist(name.c_str(), body.boolean_or("replace", false));
    if (!saved) {
        throw playlist_error(saved.failure());
    }
    JsonWriter json;
    json.begin_object().key("saved").number(*saved);
    return Response::json(json.end_object().take());
}

Response delete_playlist(Context &context) {
    const RequestBody body(context.request.body, {"name"});
    const Result<void> deleted = context.player().delete_playlist(body.text("name").c_str());
    if (!deleted) {
        throw playlist_error(deleted.failure());
    }
    return Response::nothing();
}

} // namespace vantro::web
