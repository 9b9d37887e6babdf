// A request as it travels to the service, for the one thing that the player API does not tell: why
// the service refused.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_SERVICE_REQUEST_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_SERVICE_REQUEST_H

#include <cstdint>
#include <string>
#include <string_view>

namespace vantro::ctl {

// A command of <vantro/protocol.h> with its parameters, which are added in their order.
class ServiceRequest {
  public:
    explicit ServiceRequest(uint16_t command) : command_(command) {}

    // @param value a number of 32 or 64 bits.
    template <class Number>
    ServiceRequest &number(Number value) {
        static_assert(sizeof value == 4 || sizeof value == 8);
        parameters_.append(reinterpret_cast<const char *>(&value), sizeof value);
        return *this;
    }
    ServiceRequest &text(std::string_view value);

    uint16_t command() const { return command_; }

    // Whether it asks only, so that sending it twice does nothing twice.
    bool is_query() const;

    std::string bytes() const;

  private:
    uint16_t command_;
    std::string parameters_;
};

// The reason where the service gives none, or cannot be asked for it.
constexpr int32_t no_reason = -1;

// Sends a request that the library reported as refused once more, on a connection of its own, where
// the result word can be seen. A refused command has changed nothing, so that this is safe.
// @return the result word: an error number, or a number of the service's own choice; 0 where the
//   service carries the request out by now.
int32_t ask_reason(const std::string &player, const ServiceRequest &request);

} // namespace vantro::ctl

#endif
