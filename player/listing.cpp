// The listings: media sources, and the nodes of a node, a search or a track session.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include <vantro/extras.h>
#include <vantro/player.h>

#include "player/answer.h"
#include "player/failure.h"
#include "player/log.h"
#include "player/requests.h"

namespace vantro::player {
namespace {

template <class Record>
int deliver(const Answer &answer, const char *failure, int *count, Record **records) {
    if (!answer.granted(failure)) {
        return -1;
    }
    if (answer.count() != 0 && unpack_answer(answer, answer.count(), records) != 0) {
        return -1;
    }
    *count = answer.count();
    return 0;
}

bool ask_nodes(VantroHandle *handle, std::initializer_list<iovec> request, LongAnswer &answer) {
    MutexLock lock(handle->overflow_lock);
    const int status = answer.ask(handle, request);
    const LongAnswer::Completion completion = answer.complete(handle, status);
    lock.unlock();
    return LongAnswer::is_complete(completion, status);
}

// The destinations of a listing's records. `metadata` is null if it was not requested.
struct Lists {
    int *count;
    MediaNode **nodes;
    Metadata **metadata = nullptr;
};

// The area of an answer with metadata begins with the number of bytes of its nodes.
int deliver_described(const Answer &answer, const char *failure, const Lists &lists) {
    if (!answer.granted(failure)) {
        return -1;
    }
    const int32_t count = answer.count();
    if (count == 0) {
        *lists.count = 0;
        return 0;
    }
    uint32_t node_bytes = 0;
    const size_t size = answer.byte_count();
    if (size < sizeof node_bytes) {
        note_failure(VANTRO_FAILURE_MALFORMED, EPROTO);
        msglog(LOG_SEVERITY_INFO, "%s", failure);
        return -1;
    }
    std::memcpy(&node_bytes, answer.bytes(), sizeof node_bytes);
    const size_t left = size - sizeof node_bytes;
    const size_t taken = std::min<size_t>(node_bytes, left);
    const unsigned char *const bytes = answer.bytes() + sizeof node_bytes;
    MediaNode *nodes = nullptr;
    Metadata *metadata = nullptr;
    if (unpack_bytes(bytes, taken, count, &nodes) != 0 ||
        unpack_bytes(bytes + taken, left - taken, count, &metadata) != 0) {
        vantro_free_media_nodes(nodes, count);
        return -1;
    }
    *lists.nodes = nodes;
    *lists.metadata = metadata;
    *lists.count = count;
    return 0;
}

int list_nodes(VantroHandle *handle, const char *failure, std::initializer_list<iovec> request,
               const Lists &lists) {
    LongAnswer answer(Counted::yes);
    if (!answer.make_area() || !ask_nodes(handle, request, answer)) {
        return -1;
    }
    return lists.metadata ? deliver_described(answer, failure, lists)
                          : deliver(answer, failure, lists.count, lists.nodes);
}

int browse(VantroHandle *handle, uint16_t command, const char *failure, int32_t ms_id,
           const char *node_id, int32_t offset, const Lists &lists) {
    if (!require_player(handle)) {
        return -1;
    }
    if (!node_id) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "Invalid media node id");
        errno = EINVAL;
        return -1;
    }
    const Text id(node_id);
    const RequestHeader header = request_header(command, 16 + id.length);
    return list_nodes(handle, failure,
                      {part(header), part(ms_id), part(offset), part(*lists.count), part(id.length),
                       id.characters},
                      lists);
}

int search(VantroHandle *handle, uint16_t command, const char *failure, int32_t ms_id,
           const char *filter, const char *term, int32_t offset, const Lists &lists) {
    if (!require_player(handle)) {
        return -1;
    }
    if (!term) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "Invalid term to be searched");
        errno = EINVAL;
        return -1;
    }
    if (!*term) {
        *lists.count = 0;
        return 0;
    }
    const Text sought(term), kind(filter ? filter : "");
    const RequestHeader header = request_header(command, 20 + kind.length + sought.length);
    return list_nodes(handle, failure,
                      {part(header), part(ms_id), part(offset), part(*lists.count),
                       part(kind.length), kind.characters, part(sought.length), sought.characters},
                      lists);
}

int list_tracks(VantroHandle *handle, uint16_t command, const char *failure, uint64_t tsid,
                int32_t offset, const Lists &lists) {
    if (!require_connection(handle)) {
        return -1;
    }
    const RequestHeader header = request_header(command, 16);
    return list_nodes(handle, failure, {part(header), part(tsid), part(offset), part(*lists.count)},
                      lists);
}

} // namespace
} // namespace vantro::player

using namespace vantro::player;
using vantro::MutexLock;

int vantro_get_media_sources(VantroHandle *handle, MediaSource **sources, int *count) {
    if (!require_player(handle)) {
        return -1;
    }
    const RequestHeader header = request_header(VANTRO_COMMAND_GET_MEDIA_SOURCES, 0);
    unsigned char area[VANTRO_REPLY_AREA];
    Answer answer(Counted::yes, area, sizeof area);
    MutexLock lock(handle->overflow_lock);
    const int status = answer.ask(handle, {part(header)});
    lock.unlock();
    if (!answered(status)) {
        return -1;
    }
    return deliver(answer, "vantro_get_media_sources() failed", count, sources);
}

int vantro_browse(VantroHandle *handle, int32_t ms_id, const char *node_id, int32_t offset,
                  int *count, MediaNode **nodes) {
    return browse(handle, VANTRO_COMMAND_BROWSE, "vantro_browse() failed", ms_id, node_id, offset,
                  {count, nodes});
}

int vantro_browse_metadata(VantroHandle *handle, int32_t ms_id, const char *node_id, int32_t offset,
                           int *count, MediaNode **nodes, Metadata **metadata) {
    return browse(handle, VANTRO_COMMAND_BROWSE_METADATA, "vantro_browse_metadata() failed", ms_id,
                  node_id, offset, {count, nodes, metadata});
}

int vantro_search(VantroHandle *handle, int32_t ms_id, const char *filter, const char *term,
                  int32_t offset, int *count, MediaNode **nodes) {
    return search(handle, VANTRO_COMMAND_SEARCH, "vantro_search() failed", ms_id, filter, term,
                  offset, {count, nodes});
}

int vantro_search_metadata(VantroHandle *handle, int32_t ms_id, const char *filter,
                           const char *term, int32_t offset, int *count, MediaNode **nodes,
                           Metadata **metadata) {
    return search(handle, VANTRO_COMMAND_SEARCH_METADATA, "vantro_search_metadata() failed", ms_id,
                  filter, term, offset, {count, nodes, metadata});
}

int vantro_get_trksession_tracks(VantroHandle *handle, uint64_t tsid, int32_t offset, int *count,
                                 MediaNode **tracks) {
    return list_tracks(handle, VANTRO_COMMAND_GET_TRKSESSION_TRACKS,
                       "vantro_get_trksession_tracks() failed", tsid, offset, {count, tracks});
}

int vantro_get_trksession_tracks_metadata(VantroHandle *handle, uint64_t tsid, int32_t offset,
                                          int *count, MediaNode **tracks, Metadata **metadata) {
    return list_tracks(handle, VANTRO_COMMAND_GET_TRKSESSION_TRACKS_METADATA,
                       "vantro_get_trksession_tracks_metadata() failed", tsid, offset,
                       {count, tracks, metadata});
}
