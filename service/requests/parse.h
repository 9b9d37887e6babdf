// The bytes of a request, made into a request or refused.
#ifndef VANTRO_SERVICE_REQUESTS_PARSE_H
#define VANTRO_SERVICE_REQUESTS_PARSE_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "service/catalogue/catalogue.h"

namespace vantro::service::requests {

// Most keys in one request. Each costs its client at least 8 bytes both ways, and the service a
// value that may be as long as a tag.
inline constexpr uint32_t keys_max = 16384;

// Texts lie in the bytes that were parsed, and have no NUL.
struct Request {
    uint16_t command = 0;
    std::string_view name; // of a player
    int32_t value = 0;     // position, mode or index
    float rate = 0;        // any bit pattern at all
    int32_t source = 0;
    std::string_view node;
    catalogue::Range range;
    std::string_view filter;
    std::string_view term;
    uint64_t tsid = 0;
    int32_t start = 0; // what is to be done with a new session
    std::vector<std::string_view> keys;
};

// Every byte is accounted for: what does not have exactly the length and form of its command is
// refused. The header's `payload_length` is not looked at: what arrived counts. Returns 0; ENOSYS
// for a command that is not offered; EMSGSIZE for too many keys; EINVAL for a malformed request.
int parse_request(const void *bytes, size_t size, Request &request);

} // namespace vantro::service::requests

#endif
