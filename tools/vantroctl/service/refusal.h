// Messages for requests that the service refuses.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_REFUSAL_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_REFUSAL_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/vantroctl/failure.h"

namespace vantro::ctl {

// For reasons that mean the same for every request: the service lacks a resource, or does not know
// the request. Nothing for other reasons.
std::optional<Failure> trouble_of_service(const std::string &verb, int32_t reason);

// The failure for any reason, if the verb has no more specific message.
// @param reason an error number, or another number but 0, as Client::ask() returns it.
Failure refusal(const std::string &verb, int32_t reason);

} // namespace vantro::ctl

#endif
