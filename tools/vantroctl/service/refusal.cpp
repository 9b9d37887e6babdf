#include "tools/vantroctl/service/refusal.h"

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

namespace vantro::ctl {
namespace {

struct Trouble {
    int32_t reason;
    const char *words; // After "VERB failed: ".
};

constexpr Trouble troubles[] = {
    {EIO, "the service cannot read or write its state; its log says why"},
    {ENOMEM, "the service has too little memory; try again"},
    {EMFILE, "the service has too few descriptors; try again"},
    {ENFILE, "the service has too few descriptors; try again"},
    {EAGAIN, "the service is busy; try again"},
    {EMSGSIZE, "the answer is too long; request fewer entries"},
    {EINVAL,
     "the service does not understand the request; are service and tool of the same version?"},
    {ENOSYS, "the service does not know the request; are service and tool of the same version?"},
};

} // namespace

std::optional<Failure> trouble_of_service(const std::string &verb, int32_t reason) {
    for (const Trouble &trouble : troubles) {
        if (trouble.reason == reason) {
            return Failure(Outcome::failed, fmt::format("{} failed: {} ({})", verb, trouble.words,
                                                        std::strerror(reason)));
        }
    }
    return std::nullopt;
}

Failure refusal(const std::string &verb, int32_t reason) {
    if (const std::optional<Failure> trouble = trouble_of_service(verb, reason)) {
        return *trouble;
    }
    const std::string why =
        reason < 0 ? fmt::format("with result {}", reason) : std::strerror(reason);
    return {Outcome::failed, fmt::format("{} refused by the service: {}", verb, why)};
}

} // namespace vantro::ctl
