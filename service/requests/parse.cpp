#include "service/requests/parse.h"

#include <cerrno>
#include <cstring>
#include <iterator>

#include <vantro/protocol.h>

namespace vantro::service::requests {

namespace {

static_assert(sizeof(RequestHeader) == 16);
static_assert(sizeof(float) == 4);

// Takes one value after the other from the bytes that arrived. The first one that is not there
// whole, or not well formed, ends the reading.
class Reader {
  public:
    Reader(const unsigned char *bytes, size_t size) : next_(bytes), left_(size) {}

    template <typename Number>
    Reader &number(Number &value) {
        if (need(sizeof value)) {
            std::memcpy(&value, next_, sizeof value);
            skip(sizeof value);
        }
        return *this;
    }

    Reader &text(std::string_view &value) {
        uint32_t length = 0;
        number(length);
        if (need(length)) {
            value = {reinterpret_cast<const char *>(next_), length};
            whole_ = value.find('\0') == std::string_view::npos;
            skip(length);
        }
        return *this;
    }

    size_t left() const { return left_; }
    bool done() const { return whole_ && left_ == 0; }

  private:
    bool need(size_t size) {
        whole_ = whole_ && size <= left_;
        return whole_;
    }
    void skip(size_t size) {
        next_ += size;
        left_ -= size;
    }

    const unsigned char *next_;
    size_t left_;
    bool whole_ = true;
};

// What follows the header; each reads as much as it expects.

int nothing(Reader &, Request &) {
    return 0;
}

int player_name(Reader &reader, Request &request) {
    reader.text(request.name);
    return request.name.empty() || request.name.size() > VANTRO_PLAYER_NAME_MAX ? EINVAL : 0;
}

int value(Reader &reader, Request &request) {
    reader.number(request.value);
    return 0;
}

int rate(Reader &reader, Request &request) {
    reader.number(request.rate);
    return 0;
}

int browse(Reader &reader, Request &request) {
    reader.number(request.source).number(request.range.offset).number(request.range.count);
    reader.text(request.node);
    return 0;
}

int search(Reader &reader, Request &request) {
    reader.number(request.source).number(request.range.offset).number(request.range.count);
    reader.text(request.filter).text(request.term);
    return 0;
}

int session(Reader &reader, Request &request) {
    reader.number(request.tsid);
    return 0;
}

int session_tracks(Reader &reader, Request &request) {
    reader.number(request.tsid).number(request.range.offset).number(request.range.count);
    return 0;
}

int node(Reader &reader, Request &request) {
    reader.number(request.source).text(request.node);
    return 0;
}

int node_and_keys(Reader &reader, Request &request) {
    uint32_t count = 0;
    reader.number(request.source).text(request.node).number(count);
    if (count > reader.left() / sizeof count) { // each key has a length at least
        return EINVAL;
    }
    if (count > keys_max) {
        return EMSGSIZE;
    }
    request.keys.resize(count);
    for (std::string_view &key : request.keys) {
        reader.text(key);
    }
    return 0;
}

int new_session(Reader &reader, Request &request) {
    reader.number(request.source).number(request.value).number(request.start).text(request.node);
    return 0;
}

using Form = int (*)(Reader &, Request &);

// By command. Those that have none are refused.
struct Forms {
    Form of[VANTRO_COMMAND_REPEAT + 1] = {};

    constexpr Forms() {
        of[VANTRO_COMMAND_OPEN] = of[VANTRO_COMMAND_CLOSE] = player_name;
        for (const int command :
             {VANTRO_COMMAND_GET_MEDIA_SOURCES, VANTRO_COMMAND_GET_CURRENT_STATE,
              VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO, VANTRO_COMMAND_GET_CURRENT_TRACK_INFO,
              VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION, VANTRO_COMMAND_PLAY, VANTRO_COMMAND_STOP,
              VANTRO_COMMAND_PAUSE, VANTRO_COMMAND_NEXT, VANTRO_COMMAND_PREVIOUS}) {
            of[command] = nothing;
        }
        for (const int command : {VANTRO_COMMAND_JUMP, VANTRO_COMMAND_SEEK, VANTRO_COMMAND_SHUFFLE,
                                  VANTRO_COMMAND_REPEAT}) {
            of[command] = value;
        }
        of[VANTRO_COMMAND_SET_PLAYBACK_RATE] = rate;
        of[VANTRO_COMMAND_BROWSE] = browse;
        of[VANTRO_COMMAND_SEARCH] = search;
        of[VANTRO_COMMAND_GET_TRKSESSION_TRACKS] = session_tracks;
        of[VANTRO_COMMAND_GET_METADATA] = node;
        of[VANTRO_COMMAND_GET_EXTENDED_METADATA] = node_and_keys;
        of[VANTRO_COMMAND_CREATE_TRKSESSION] = new_session;
        of[VANTRO_COMMAND_DESTROY_TRKSESSION] = session;
    }
};

constexpr Forms forms;

} // namespace

int parse_request(const void *bytes, size_t size, Request &request) {
    RequestHeader header;
    if (size < sizeof header) {
        return EINVAL;
    }
    std::memcpy(&header, bytes, sizeof header);
    const Form form = header.command < std::size(forms.of) ? forms.of[header.command] : nullptr;
    if (!form) {
        return ENOSYS;
    }
    if (header.reserved0 != 0 || header.reserved1 != 0 || header.reserved2 != 0) {
        return EINVAL;
    }

    request.command = header.command;
    Reader reader(static_cast<const unsigned char *>(bytes) + sizeof header, size - sizeof header);
    if (const int result = form(reader, request); result != 0) {
        return result;
    }
    return reader.done() ? 0 : EINVAL;
}

} // namespace vantro::service::requests
