// Turns failures of the library into answers to requests.
#ifndef VANTRO_BRIDGES_WEB_SERVICE_CALL_H
#define VANTRO_BRIDGES_WEB_SERVICE_CALL_H

#include <optional>
#include <utility>

#include <vantro/vantro.hpp>

#include "bridges/web/api_error.h"

namespace vantro::web {

ApiError api_error_of(const Failure &failure);

// Whether the error means that the service has not answered.
bool is_silence(const ApiError &error);

// The value of a call. @throws ApiError if it failed.
template <typename Value>
Value checked(Result<Value> result) {
    if (!result) {
        throw api_error_of(result.failure());
    }
    return *std::move(result);
}
inline void checked(const Result<void> &result) {
    if (!result) {
        throw api_error_of(result.failure());
    }
}

// Whether the service refused for that reason, an error number.
template <typename Value>
bool refused(const Result<Value> &result, int number) {
    return !result && result.failure().why() == Reason::refused &&
           result.failure().number == number;
}

} // namespace vantro::web

#endif
