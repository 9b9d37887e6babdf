#include "service/requests/parse.h"

#include <cerrno>
#include <cstring>

namespace vantro::service::requests {

namespace {

static_assert(sizeof(RequestHeader) == 16);
static_assert(sizeof(float) == 4);

} // namespace

Reader &Reader::text(std::string_view &value) {
    uint32_t length = 0;
    number(length);
    if (need(length)) {
        value = {reinterpret_cast<const char *>(next_), length};
        whole_ = value.find('\0') == std::string_view::npos;
        skip(length);
    }
    return *this;
}

bool Reader::need(size_t size) {
    whole_ = whole_ && size <= left_;
    return whole_;
}

void Reader::skip(size_t size) {
    next_ += size;
    left_ -= size;
}

void Reader::read(void *value, size_t size) {
    if (need(size)) {
        std::memcpy(value, next_, size);
        skip(size);
    }
}

namespace forms {

int nothing(Reader &, Request &) {
    return 0;
}

int player_name(Reader &reader, Request &request) {
    reader.text(request.name);
    return request.name.empty() || request.name.size() > VANTRO_PLAYER_NAME_MAX ? EINVAL : 0;
}

int playlist(Reader &reader, Request &request) {
    reader.text(request.name);
    return 0;
}

int flags_and_playlist(Reader &reader, Request &request) {
    reader.number(request.value).text(request.name);
    return 0;
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
    if (count > reader.left() / sizeof count) { // each key has at least a length
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

} // namespace forms

bool read_header(const void *bytes, size_t size, RequestHeader &header) {
    if (size < sizeof header) {
        return false;
    }
    std::memcpy(&header, bytes, sizeof header);
    return true;
}

int parse_request(const RequestHeader &header, Form form, const void *bytes, size_t size,
                  Request &request) {
    if (header.reserved0 != 0 || header.reserved1 != 0 || header.reserved2 != 0) {
        return EINVAL;
    }
    Reader reader(static_cast<const unsigned char *>(bytes) + sizeof header, size - sizeof header);
    if (const int result = form(reader, request); result != 0) {
        return result;
    }
    return reader.done() ? 0 : EINVAL;
}

} // namespace vantro::service::requests
