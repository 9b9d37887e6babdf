// The listings: media sources, and the nodes of a node, a search or a track session.
#include <cerrno>
#include <cstdint>

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

int list_nodes(VantroHandle *handle, const char *failure, std::initializer_list<iovec> request,
               int *count, MediaNode **nodes) {
    LongAnswer answer(Counted::yes);
    if (!answer.make_area() || !ask_nodes(handle, request, answer)) {
        return -1;
    }
    return deliver(answer, failure, count, nodes);
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
    const RequestHeader header = request_header(VANTRO_COMMAND_BROWSE, 16 + id.length);
    return list_nodes(
        handle, "vantro_browse() failed",
        {part(header), part(ms_id), part(offset), part(*count), part(id.length), id.characters},
        count, nodes);
}

int vantro_search(VantroHandle *handle, int32_t ms_id, const char *filter, const char *term,
                  int32_t offset, int *count, MediaNode **nodes) {
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
        *count = 0;
        return 0;
    }
    const Text sought(term), kind(filter ? filter : "");
    const RequestHeader header =
        request_header(VANTRO_COMMAND_SEARCH, 20 + kind.length + sought.length);
    return list_nodes(handle, "vantro_search() failed",
                      {part(header), part(ms_id), part(offset), part(*count), part(kind.length),
                       kind.characters, part(sought.length), sought.characters},
                      count, nodes);
}

int vantro_get_trksession_tracks(VantroHandle *handle, uint64_t tsid, int32_t offset, int *count,
                                 MediaNode **tracks) {
    if (!require_connection(handle)) {
        return -1;
    }
    const RequestHeader header = request_header(VANTRO_COMMAND_GET_TRKSESSION_TRACKS, 16);
    return list_nodes(handle, "vantro_get_trksession_tracks() failed",
                      {part(header), part(tsid), part(offset), part(*count)}, count, tracks);
}
