// Parses the bytes of a request, or refuses them.
#ifndef VANTRO_SERVICE_REQUESTS_PARSE_H
#define VANTRO_SERVICE_REQUESTS_PARSE_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include <vantro/protocol.h>

#include "service/catalogue/catalogue.h"

namespace vantro::service::requests {

// Most keys in one request. Each costs its client at least 8 bytes both ways, and the service a
// value that may be as long as a tag.
inline constexpr uint32_t keys_max = 16384;

// Texts lie in the bytes that were parsed, and have no NUL.
struct Request {
    std::string_view name; // of a player or a playlist
    int32_t value = 0;     // position, mode, index or flags
    float rate = 0;        // any bit pattern at all
    int32_t source = 0;
    std::string_view node;
    catalogue::Range range;
    std::string_view filter;
    std::string_view term;
    uint64_t tsid = 0;
    int32_t start = 0; // VANTRO_TRKSESSION_*
    std::vector<std::string_view> keys;
};

// Reads one value after the other from the received bytes. The first incomplete or malformed value
// ends the reading.
class Reader {
  public:
    Reader(const unsigned char *bytes, size_t size) : next_(bytes), left_(size) {}

    template <typename Number>
    Reader &number(Number &value) {
        read(&value, sizeof value);
        return *this;
    }
    Reader &text(std::string_view &value);

    size_t left() const { return left_; }
    // Whether all bytes were read without error.
    bool done() const { return whole_ && left_ == 0; }

  private:
    bool need(size_t size);
    void skip(size_t size);
    void read(void *value, size_t size);

    const unsigned char *next_;
    size_t left_;
    bool whole_ = true;
};

// A form of the data after a header. It reads what it expects, and returns 0, or EINVAL or EMSGSIZE
// if the data are invalid.
using Form = int (*)(Reader &, Request &);

namespace forms {

int nothing(Reader &reader, Request &request);
int player_name(Reader &reader, Request &request);
int playlist(Reader &reader, Request &request);
int flags_and_playlist(Reader &reader, Request &request);
int value(Reader &reader, Request &request);
int rate(Reader &reader, Request &request);
int browse(Reader &reader, Request &request);
int search(Reader &reader, Request &request);
int session(Reader &reader, Request &request);
int session_tracks(Reader &reader, Request &request);
int node(Reader &reader, Request &request);
int node_and_keys(Reader &reader, Request &request);
int new_session(Reader &reader, Request &request);

} // namespace forms

// Copies the header of a request. Returns whether the bytes are long enough to have one.
bool read_header(const void *bytes, size_t size, RequestHeader &header);

// Parses a request with this header, whose command has that form. The bytes must have exactly the
// length and form of the command. The header's `payload_length` is ignored; the number of received
// bytes counts. Returns 0; EMSGSIZE for too many keys; EINVAL for a malformed request.
int parse_request(const RequestHeader &header, Form form, const void *bytes, size_t size,
                  Request &request);

} // namespace vantro::service::requests

#endif
