// Queries about the player's present state: state, track session, track, position.
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <vantro/extras.h>
#include <vantro/player.h>

#include "player/answer.h"
#include "player/failure.h"
#include "player/log.h"
#include "player/requests.h"

namespace vantro::player {
namespace {

static_assert(sizeof(VantroStateInfo) == 16);
static_assert(sizeof(VantroTrksessionInfo) == 16);
static_assert(offsetof(VantroTrksessionInfo, tsid) == 8);
static_assert(sizeof(VantroVolume) == 8);

// Sends a query with an answer of fixed size. An answer shorter than its record counts as a
// refusal.
template <class Value>
bool ask(VantroHandle *handle, uint16_t command, const char *failure, Value &value) {
    if (!require_connection(handle)) {
        return false;
    }
    const RequestHeader header = request_header(command, 0);
    int32_t result = no_result;
    uint32_t answer_length = 0;
    if (!answered(putgetv(handle, {part(header)}, {part(result), part(value)}, answer_length))) {
        return false;
    }
    if (result == 0 && answer_length >= sizeof result + sizeof value) {
        return true;
    }
    note_result(result);
    msglog(LOG_SEVERITY_INFO, "%s", failure);
    return false;
}

// Makes the record that a caller receives. Ends the process if there is no memory for it.
template <class Record>
Record *make_record(Record **record, const char *no_memory) {
    *record = static_cast<Record *>(std::calloc(1, sizeof(Record)));
    if (!*record) {
        msglog(LOG_SEVERITY_CRITICAL, "%s", no_memory);
    }
    return *record;
}

template <class Record>
int ask_record(VantroHandle *handle, uint16_t command, const char *failure, const char *no_memory,
               Record **record) {
    Record received{};
    if (!ask(handle, command, failure, received) || !make_record(record, no_memory)) {
        return -1;
    }
    std::memcpy(*record, &received, sizeof received);
    return 0;
}

// The answer to the track query, field by field.
struct TrackAnswer {
    int32_t result = no_result;
    int32_t index = 0;
    uint64_t tsid = 0;
    int32_t node_length = 0;
    int32_t metadata_length = 0;
    unsigned char data[VANTRO_REPLY_AREA];

    static constexpr size_t fixed_bytes = 24;
};

int ask_track(VantroHandle *handle, TrackAnswer &answer, uint32_t &answer_length) {
    const RequestHeader header = request_header(VANTRO_COMMAND_GET_CURRENT_TRACK_INFO, 0);
    // If the track is too long for the area, the service holds the answer, and another thread's
    // fetch could take it as its own.
    const MutexLock lock(handle->overflow_lock);
    return putgetv(handle, {part(header)},
                   {part(answer.result), part(answer.index), part(answer.tsid),
                    part(answer.node_length), part(answer.metadata_length), part(answer.data)},
                   answer_length);
}

// The bytes of an answer that are not unpacked yet.
struct Rest {
    const unsigned char *at;
    size_t left;
};

// Unpacks the record in the next `length` bytes; 0 or less: no record. Records a failure.
template <class Record>
bool take(Rest &rest, int32_t length, Record **record) {
    if (length <= 0) {
        return true;
    }
    const auto bytes = static_cast<size_t>(length);
    if (bytes > rest.left) {
        note_failure(VANTRO_FAILURE_MALFORMED, EPROTO);
        return false;
    }
    if (unpack_bytes(rest.at, bytes, 1, record) != 0) {
        return false;
    }
    rest.at += bytes;
    rest.left -= bytes;
    return true;
}

// The fixed part of the answer to the status query.
struct StatusWords {
    VantroStateInfo state;
    VantroTrksessionInfo trksession;
    VantroVolume volume;
    int32_t position;
    int32_t index;
    int32_t node_length;
    int32_t metadata_length;
};
static_assert(sizeof(StatusWords) == 56);

struct FreeStatus {
    void operator()(VantroStatus *status) const { vantro_free_status(status); }
};
using OwnedStatus = std::unique_ptr<VantroStatus, FreeStatus>;

// @return null if the bytes are not a status, or if there is no memory; records which.
OwnedStatus unpack_status(const Answer &answer) {
    StatusWords words;
    if (answer.byte_count() < sizeof words) {
        note_failure(VANTRO_FAILURE_MALFORMED, EPROTO);
        msglog(LOG_SEVERITY_INFO, "vantro_get_status() failed");
        return nullptr;
    }
    std::memcpy(&words, answer.bytes(), sizeof words);
    OwnedStatus status(static_cast<VantroStatus *>(std::calloc(1, sizeof(VantroStatus))));
    if (!status) {
        note_failure(VANTRO_FAILURE_NO_MEMORY, ENOMEM);
        msglog(LOG_SEVERITY_INFO, "Cannot allocate memory");
        return nullptr;
    }
    status->state = words.state;
    status->trksession = words.trksession;
    status->volume = words.volume;
    status->position = words.position;
    status->index = words.index;
    Rest rest{answer.bytes() + sizeof words, answer.byte_count() - sizeof words};
    if (!take(rest, words.node_length, &status->media_node) ||
        !take(rest, words.metadata_length, &status->metadata)) {
        return nullptr;
    }
    return status;
}

} // namespace
} // namespace vantro::player

using namespace vantro::player;
using vantro::MutexLock;

int vantro_get_current_state(VantroHandle *handle, VantroStateInfo **info) {
    return ask_record(handle, VANTRO_COMMAND_GET_CURRENT_STATE, "vantro_get_current_state() failed",
                      "No memory for state", info);
}

int vantro_get_current_trksession_info(VantroHandle *handle, VantroTrksessionInfo **info) {
    return ask_record(handle, VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO,
                      "vantro_get_current_trksession_info() failed",
                      "No memory for trksession_info", info);
}

int vantro_get_current_track_info(VantroHandle *handle, VantroTrackInfo **info) {
    if (!require_connection(handle)) {
        return -1;
    }
    TrackAnswer answer;
    uint32_t answer_length = 0;
    if (!answered(ask_track(handle, answer, answer_length))) {
        return -1;
    }
    const KeepErrno keep;
    if (answer.result != 0 || answer_length < answer.fixed_bytes) {
        note_result(answer.result);
        msglog(LOG_SEVERITY_INFO, "vantro_get_current_track_info() failed");
        return -1;
    }
    VantroTrackInfo *track = make_record(info, "No memory");
    if (!track) {
        return -1;
    }
    track->index = answer.index;
    track->tsid = answer.tsid;
    Rest rest{answer.data, answer_length - answer.fixed_bytes};
    if (!take(rest, answer.node_length, &track->media_node) ||
        !take(rest, answer.metadata_length, &track->metadata)) {
        return -1;
    }
    return 0;
}

int vantro_get_current_track_position(VantroHandle *handle, int32_t *position) {
    int32_t received = 0;
    if (!ask(handle, VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION,
             "vantro_get_current_track_position() failed", received)) {
        return -1;
    }
    *position = received;
    return 0;
}

int vantro_get_volume(VantroHandle *handle, VantroVolume *volume) {
    VantroVolume received{};
    if (!require_player(handle) ||
        !ask(handle, VANTRO_COMMAND_GET_VOLUME, "vantro_get_volume() failed", received)) {
        return -1;
    }
    *volume = received;
    return 0;
}

int vantro_get_status(VantroHandle *handle, VantroStatus **status) {
    LongAnswer answer(Counted::no);
    if (!require_player(handle) || !answer.make_area()) {
        return -1;
    }
    const RequestHeader header = request_header(VANTRO_COMMAND_GET_STATUS, 0);
    MutexLock lock(handle->overflow_lock);
    const int asked = answer.ask(handle, {part(header)});
    const LongAnswer::Completion completion = answer.complete(handle, asked);
    lock.unlock();
    if (!LongAnswer::is_complete(completion, asked) ||
        !answer.granted("vantro_get_status() failed")) {
        return -1;
    }
    const KeepErrno keep;
    OwnedStatus whole = unpack_status(answer);
    if (!whole) {
        return -1;
    }
    *status = whole.release();
    return 0;
}

int vantro_get_identity(VantroHandle *handle, VantroIdentity *identity) {
    VantroIdentity received{};
    if (!ask(handle, VANTRO_COMMAND_GET_IDENTITY, "vantro_get_identity() failed", received)) {
        return -1;
    }
    received.group_count = std::clamp(received.group_count, 0, VANTRO_IDENTITY_GROUPS);
    received.version[sizeof received.version - 1] = '\0';
    received.capabilities[sizeof received.capabilities - 1] = '\0';
    *identity = received;
    return 0;
}
