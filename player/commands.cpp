// The playback commands: one table, and a request without or with one 32-bit argument.
#include <bit>
#include <cerrno>
#include <cstdint>

#include <vantro/extras.h>
#include <vantro/player.h>

#include "player/failure.h"
#include "player/log.h"
#include "player/requests.h"

namespace vantro::player {
namespace {

struct Command {
    uint16_t code;
    const char *failure;
};

constexpr Command play_command{VANTRO_COMMAND_PLAY, "vantro_play() failed"};
constexpr Command stop_command{VANTRO_COMMAND_STOP, "vantro_stop() failed"};
constexpr Command pause_command{VANTRO_COMMAND_PAUSE, "vantro_pause() failed"};
constexpr Command next_command{VANTRO_COMMAND_NEXT, "vantro_next() failed"};
constexpr Command previous_command{VANTRO_COMMAND_PREVIOUS, "vantro_previous() failed"};
constexpr Command seek_command{VANTRO_COMMAND_SEEK, "vantro_seek() failed"};
constexpr Command rate_command{VANTRO_COMMAND_SET_PLAYBACK_RATE,
                               "vantro_set_playback_rate() failed"};
constexpr Command shuffle_command{VANTRO_COMMAND_SHUFFLE, "vantro_shuffle() failed"};
constexpr Command repeat_command{VANTRO_COMMAND_REPEAT, "vantro_repeat() failed"};
constexpr Command volume_command{VANTRO_COMMAND_SET_VOLUME, "vantro_set_volume() failed"};
constexpr Command rescan_command{VANTRO_COMMAND_RESCAN, "vantro_rescan() failed"};
constexpr Command muted_command{VANTRO_COMMAND_SET_MUTED, "vantro_set_muted() failed"};

int conclude(const Command &command, int32_t result) {
    if (result == 0) {
        return 0;
    }
    msglog(LOG_SEVERITY_INFO, "%s", command.failure);
    return -1;
}

int send(VantroHandle *handle, const Command &command) {
    return conclude(command, vantro_iomsg_noparam(handle, command.code));
}

int send(VantroHandle *handle, const Command &command, int32_t value) {
    return conclude(command, vantro_iomsg_integer(handle, command.code, value));
}

// A mode below zero is out of range like one that is too large.
bool in_range(int32_t mode, uint32_t highest) {
    return static_cast<uint32_t>(mode) <= highest;
}

} // namespace
} // namespace vantro::player

using namespace vantro::player;

int vantro_play(VantroHandle *handle) {
    return send(handle, play_command);
}

int vantro_stop(VantroHandle *handle) {
    return send(handle, stop_command);
}

int vantro_pause(VantroHandle *handle) {
    return send(handle, pause_command);
}

int vantro_next(VantroHandle *handle) {
    return send(handle, next_command);
}

int vantro_previous(VantroHandle *handle) {
    return send(handle, previous_command);
}

int vantro_seek(VantroHandle *handle, int32_t position) {
    return send(handle, seek_command, position);
}

int vantro_set_playback_rate(VantroHandle *handle, float rate) {
    // The rate is sent as the float's four bytes, in the same request as an integer.
    return send(handle, rate_command, std::bit_cast<int32_t>(rate));
}

int vantro_shuffle(VantroHandle *handle, int32_t mode) {
    if (!in_range(mode, VANTRO_SHUFFLE_ON)) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "invalid shuffle_mode: %d", mode);
        return -1;
    }
    return send(handle, shuffle_command, mode);
}

int vantro_repeat(VantroHandle *handle, int32_t mode) {
    if (!in_range(mode, VANTRO_REPEAT_ONE)) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "invalid repeat_mode: %d", mode);
        return -1;
    }
    return send(handle, repeat_command, mode);
}

int vantro_set_volume(VantroHandle *handle, int32_t level) {
    return send(handle, volume_command, level);
}

int vantro_set_muted(VantroHandle *handle, int32_t muted) {
    return send(handle, muted_command, muted);
}

int vantro_rescan(VantroHandle *handle) {
    return send(handle, rescan_command);
}

int vantro_rescan_node(VantroHandle *handle, int32_t ms_id, const char *node_id) {
    if (!require_player(handle)) {
        return -1;
    }
    if (!node_id) {
        note_failure(VANTRO_FAILURE_INVALID, EINVAL);
        msglog(LOG_SEVERITY_INFO, "Invalid media node id");
        return -1;
    }
    const Text id(node_id);
    const RequestHeader header = request_header(VANTRO_COMMAND_RESCAN_NODE, 8 + id.length);
    return carried_out(handle, "vantro_rescan_node() failed",
                       {part(header), part(ms_id), part(id.length), id.characters})
               ? 0
               : -1;
}
