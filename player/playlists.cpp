// Saving and deleting playlists of the service.
#include <cerrno>
#include <cstdint>

#include <vantro/extras.h>

#include "player/failure.h"
#include "player/log.h"
#include "player/requests.h"

namespace vantro::player {
namespace {

bool has_name(const char *name) {
    if (!name) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "The playlist's name cannot be NULL");
    }
    return name != nullptr;
}

} // namespace
} // namespace vantro::player

using namespace vantro::player;

int vantro_save_playlist(VantroHandle *handle, const char *name, int32_t flags) {
    if (!require_player(handle) || !has_name(name)) {
        return -1;
    }
    const Text text(name);
    const RequestHeader header =
        request_header(VANTRO_COMMAND_SAVE_PLAYLIST,
                       static_cast<uint32_t>(sizeof flags + sizeof text.length) + text.length);
    int32_t tracks = 0;
    if (!carried_out(handle, "vantro_save_playlist() failed",
                     {part(header), part(flags), part(text.length), text.characters},
                     part(tracks))) {
        return -1;
    }
    if (tracks < 1) {
        note_failure(VANTRO_FAILURE_MALFORMED, EPROTO);
        return -1;
    }
    return tracks;
}

int vantro_delete_playlist(VantroHandle *handle, const char *name) {
    if (!require_player(handle) || !has_name(name)) {
        return -1;
    }
    const Text text(name);
    const RequestHeader header = request_header(
        VANTRO_COMMAND_DELETE_PLAYLIST, static_cast<uint32_t>(sizeof text.length) + text.length);
    return carried_out(handle, "vantro_delete_playlist() failed",
                       {part(header), part(text.length), text.characters})
               ? 0
               : -1;
}
