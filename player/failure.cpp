#include "player/failure.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "player/requests.h"

namespace vantro::player {

namespace {

struct Failure {
    int32_t reason;
    int32_t number;
};

constinit thread_local Failure last = {VANTRO_FAILURE_NONE, 0};

constexpr std::array<const char *, VANTRO_FAILURE_CHANGED + 1> reason_texts = {
    "nothing failed",
    "the service is gone",
    "the service refused",
    "a signal interrupted the call",
    "the service did not answer in time",
    "the service's answer cannot be understood",
    "there is no memory",
    "an argument is wrong",
    "the service could not be asked",
    "the list has changed",
};

int32_t reason_of(int status) {
    switch (status) {
    case ECONNRESET:
    case ECONNREFUSED:
    case ENOENT:
    case EBADF:
        return VANTRO_FAILURE_GONE;
    case EINTR:
        return VANTRO_FAILURE_INTERRUPTED;
    case ETIMEDOUT:
        return VANTRO_FAILURE_TIMED_OUT;
    case EPROTO:
    case EPROTONOSUPPORT:
        return VANTRO_FAILURE_MALFORMED;
    case ENOMEM:
        return VANTRO_FAILURE_NO_MEMORY;
    default:
        return VANTRO_FAILURE_OTHER;
    }
}

} // namespace

void note_failure(int32_t reason, int32_t number) {
    last = {reason, number};
}

void note_failed_exchange(const VantroHandle *handle, int status) {
    note_failure(reason_of(status), status);
    if (status == ETIMEDOUT && handle && handle->timeout_ms > 0) {
        errno = ETIMEDOUT;
    }
}

void note_result(int32_t result) {
    if (result == no_result || result == 0) {
        note_failure(VANTRO_FAILURE_MALFORMED, EPROTO);
    } else {
        note_failure(VANTRO_FAILURE_REFUSED, result);
    }
}

} // namespace vantro::player

using namespace vantro::player;

int32_t vantro_last_failure(VantroFailure *failure) {
    const KeepErrno keep;
    const Failure noted = last;
    if (failure) {
        failure->reason = noted.reason;
        failure->number = noted.number;
        const char *const text = reason_texts[static_cast<size_t>(noted.reason)];
        if (noted.number != 0) {
            std::array<char, sizeof failure->text> buffer;
            std::snprintf(failure->text, sizeof failure->text, "%s: %s", text,
                          strerror_r(noted.number, buffer.data(), buffer.size()));
        } else {
            std::snprintf(failure->text, sizeof failure->text, "%s", text);
        }
    }
    return noted.reason;
}
