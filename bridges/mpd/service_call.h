// Turns failures of the library into errors of commands.
#ifndef VANTRO_BRIDGES_MPD_SERVICE_CALL_H
#define VANTRO_BRIDGES_MPD_SERVICE_CALL_H

#include <optional>
#include <utility>

#include <vantro/vantro.hpp>

#include "bridges/mpd/ack.h"

namespace vantro::mpd {

// The service has ended, or none runs.
class ServiceGone : public Ack {
  public:
    ServiceGone() : Ack(AckCode::system, "the player service does not run") {}
};

// The service runs, but has not answered.
class ServiceSilent : public Ack {
  public:
    ServiceSilent() : Ack(AckCode::system, "the player service does not answer") {}
};

// The Ack for a failure.
Ack ack_of(const Failure &failure);

// Throws the failure as a ServiceGone, a ServiceSilent, or another Ack.
[[noreturn]] void throw_ack(const Failure &failure);

// The value of a call. @throws Ack if it failed.
template <typename Value>
Value checked(Result<Value> result) {
    if (!result) {
        throw_ack(result.failure());
    }
    return *std::move(result);
}
inline void checked(const Result<void> &result) {
    if (!result) {
        throw_ack(result.failure());
    }
}

// Whether the service refused for that reason, an error number.
template <typename Value>
bool refused(const Result<Value> &result, int number) {
    return !result && result.failure().why() == Reason::refused &&
           result.failure().number == number;
}

} // namespace vantro::mpd

#endif
