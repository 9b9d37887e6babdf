// Track sessions: making and destroying one, and moving within the current one.
#include <cerrno>
#include <cstdint>

#include <vantro/player.h>

#include "player/failure.h"
#include "player/log.h"
#include "player/requests.h"

using namespace vantro::player;

int vantro_create_trksession(VantroHandle *handle, int32_t ms_id, const char *node_id,
                             const int32_t *first, int32_t second, uint64_t *tsid) {
    if (!require_player(handle)) {
        return -1;
    }
    if (!node_id) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "The media node id cannot be NULL");
        return -1;
    }
    const int32_t value = first ? *first : 0;
    const Text id(node_id);
    // 4 less than the number of following bytes: the protocol defines it so, and services do not
    // rely on it.
    const RequestHeader header = request_header(VANTRO_COMMAND_CREATE_TRKSESSION, 12 + id.length);
    uint64_t received = 0;
    if (!carried_out(
            handle, "vantro_create_trksession() failed",
            {part(header), part(ms_id), part(value), part(second), part(id.length), id.characters},
            part(received))) {
        return -1;
    }
    *tsid = received;
    return 0;
}

int vantro_destroy_trksession(VantroHandle *handle, uint64_t tsid) {
    if (!require_player(handle)) {
        return -1;
    }
    const RequestHeader header = request_header(VANTRO_COMMAND_DESTROY_TRKSESSION, sizeof tsid);
    return carried_out(handle, "vantro_destroy_trksession() failed", {part(header), part(tsid)})
               ? 0
               : -1;
}

int vantro_jump(VantroHandle *handle, int32_t index) {
    if (!require_player(handle)) {
        return -1;
    }
    const RequestHeader header = request_header(VANTRO_COMMAND_JUMP, sizeof index);
    // The log uses the services' name for this operation: setting the session's index.
    return carried_out(handle, "vantro_set_trksession_index() failed", {part(header), part(index)})
               ? 0
               : -1;
}
