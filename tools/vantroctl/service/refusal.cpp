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
    {ENOMEM, "the service is short of memory; try again"},
    {EMFILE, "the service is short of descriptors; try again"},
    {ENFILE, "the service is short of descriptors; try again"},
    {EAGAIN, "the service is busy; try again"},
    {EMSGSIZE, "the answer is too long; ask for less"},
    {EINVAL, "the service does not understand it; are service and tool of one version?"},
    {ENOSYS, "the service does not know it; are service and tool of one version?"},
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
