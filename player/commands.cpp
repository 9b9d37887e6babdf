// The playback commands: one table, and a request without or with one 32-bit argument.
#include <bit>
#include <cstdint>

#include <vantro/player.h>

#include "player/log.h"
#include "player/requests.h"

namespace vantro::player {
namespace {

struct Command {
    uint16_t code;
    const char *failure;
};

constexpr Command play{VANTRO_COMMAND_PLAY, "vantro_play() failed"};
constexpr Command stop{VANTRO_COMMAND_STOP, "vantro_stop() failed"};
constexpr Command pause{VANTRO_COMMAND_PAUSE, "vantro_pause() failed"};
constexpr Command next{VANTRO_COMMAND_NEXT, "vantro_next() failed"};
constexpr Command previous{VANTRO_COMMAND_PREVIOUS, "vantro_previous() failed"};
constexpr Command seek{VANTRO_COMMAND_SEEK, "vantro_seek() failed"};
constexpr Command rate{VANTRO_COMMAND_SET_PLAYBACK_RATE, "vantro_set_playback_rate() failed"};
constexpr Command shuffle{VANTRO_COMMAND_SHUFFLE, "vantro_shuffle() failed"};
constexpr Command repeat{VANTRO_COMMAND_REPEAT, "vantro_repeat() failed"};

int conclude(const Command &command, int32_t result) {
    if (result == 0) {
        return 0;
    }
    msglog(LOG_SEVERITY_INFO, "%s", command.failure);
    return -1;
}

int send(const VantroHandle *handle, const Command &command) {
    return conclude(command, vantro_iomsg_noparam(handle, command.code));
}

int send(const VantroHandle *handle, const Command &command, int32_t value) {
    return conclude(command, vantro_iomsg_integer(handle, command.code, value));
}

// A mode below zero is out of range like one that is too large.
bool in_range(int32_t mode, uint32_t highest) {
    return static_cast<uint32_t>(mode) <= highest;
}

} // namespace
} // namespace vantro::player

int vantro_play(VantroHandle *handle) {
    return vantro::player::send(handle, vantro::player::play);
}

int vantro_stop(VantroHandle *handle) {
    return vantro::player::send(handle, vantro::player::stop);
}

int vantro_pause(VantroHandle *handle) {
    return vantro::player::send(handle, vantro::player::pause);
}

int vantro_next(VantroHandle *handle) {
    return vantro::player::send(handle, vantro::player::next);
}

int vantro_previous(VantroHandle *handle) {
    return vantro::player::send(handle, vantro::player::previous);
}

int vantro_seek(VantroHandle *handle, int32_t position) {
    return vantro::player::send(handle, vantro::player::seek, position);
}

int vantro_set_playback_rate(VantroHandle *handle, float rate) {
    // The rate travels as the float's four bytes, which the integer's request carries as well.
    return vantro::player::send(handle, vantro::player::rate, std::bit_cast<int32_t>(rate));
}

int vantro_shuffle(VantroHandle *handle, int32_t mode) {
    if (!vantro::player::in_range(mode, VANTRO_SHUFFLE_ON)) {
        vantro::player::msglog(LOG_SEVERITY_INFO, "invalid shuffle_mode: %d", mode);
        return -1;
    }
    return vantro::player::send(handle, vantro::player::shuffle, mode);
}

int vantro_repeat(VantroHandle *handle, int32_t mode) {
    if (!vantro::player::in_range(mode, VANTRO_REPEAT_ONE)) {
        vantro::player::msglog(LOG_SEVERITY_INFO, "invalid repeat_mode: %d", mode);
        return -1;
    }
    return vantro::player::send(handle, vantro::player::repeat, mode);
}
