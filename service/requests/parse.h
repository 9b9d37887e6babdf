// The bytes of a request, made into a request or refused.
#ifndef VANTRO_SERVICE_REQUESTS_PARSE_H
#define VANTRO_SERVICE_REQUESTS_PARSE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vantro {

struct Request {
    uint16_t command = 0;
    std::string_view name; // of a player; lies in the bytes that were parsed
    int32_t value = 0;     // position or mode
    float rate = 0;        // any bit pattern at all
};

// Every byte is accounted for: what does not have exactly the length and form of its command is
// refused. Returns 0; ENOSYS for a command that is not offered; EINVAL for a malformed request.
int parse_request(const void *bytes, std::size_t size, Request &request);

} // namespace vantro

#endif
