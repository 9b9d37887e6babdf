#include "service/requests/parse.h"

#include <cerrno>
#include <cstring>
#include <iterator>

#include <vantro/protocol.h>

namespace vantro {

namespace {

static_assert(sizeof(RequestHeader) == 16);
static_assert(sizeof(float) == 4);

enum class Shape : uint8_t { refused, bare, name, value, rate };

// What follows the header, by command. Commands that are not listed are refused.
struct Shapes {
    Shape of[VANTRO_COMMAND_REPEAT + 1] = {};

    constexpr Shapes() {
        for (const int command : {VANTRO_COMMAND_OPEN, VANTRO_COMMAND_CLOSE})
            of[command] = Shape::name;
        for (const int command :
             {VANTRO_COMMAND_GET_CURRENT_STATE, VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO,
              VANTRO_COMMAND_GET_CURRENT_TRACK_INFO, VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION,
              VANTRO_COMMAND_PLAY, VANTRO_COMMAND_STOP, VANTRO_COMMAND_PAUSE, VANTRO_COMMAND_NEXT,
              VANTRO_COMMAND_PREVIOUS})
            of[command] = Shape::bare;
        for (const int command :
             {VANTRO_COMMAND_SEEK, VANTRO_COMMAND_SHUFFLE, VANTRO_COMMAND_REPEAT})
            of[command] = Shape::value;
        of[VANTRO_COMMAND_SET_PLAYBACK_RATE] = Shape::rate;
    }
};

constexpr Shapes shapes;

bool parse_name(const unsigned char *bytes, std::size_t size, std::string_view &name) {
    uint32_t length = 0;
    if (size < sizeof length)
        return false;
    std::memcpy(&length, bytes, sizeof length);
    if (length != size - sizeof length || length == 0 || length > VANTRO_PLAYER_NAME_MAX)
        return false;
    name = {reinterpret_cast<const char *>(bytes) + sizeof length, length};
    return true;
}

} // namespace

int parse_request(const void *bytes, std::size_t size, Request &request) {
    RequestHeader header;
    if (size < sizeof header)
        return EINVAL;
    std::memcpy(&header, bytes, sizeof header);
    const Shape shape =
        header.command < std::size(shapes.of) ? shapes.of[header.command] : Shape::refused;
    if (shape == Shape::refused)
        return ENOSYS;
    if (header.reserved0 != 0 || header.reserved1 != 0 || header.reserved2 != 0 ||
        header.payload_length != size - sizeof header)
        return EINVAL;

    request = {};
    request.command = header.command;
    const unsigned char *rest = static_cast<const unsigned char *>(bytes) + sizeof header;
    size -= sizeof header;
    switch (shape) {
    case Shape::name:
        return parse_name(rest, size, request.name) ? 0 : EINVAL;
    case Shape::value:
        if (size != sizeof request.value)
            return EINVAL;
        std::memcpy(&request.value, rest, sizeof request.value);
        return 0;
    case Shape::rate:
        if (size != sizeof request.rate)
            return EINVAL;
        std::memcpy(&request.rate, rest, sizeof request.rate);
        return 0;
    default:
        return size == 0 ? 0 : EINVAL;
    }
}

} // namespace vantro
