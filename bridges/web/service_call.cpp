#include "bridges/web/service_call.h"

#include <cerrno>
#include <string_view>

namespace vantro::web {
namespace {

constexpr const char *silence = "service_silent";

} // namespace

ApiError api_error_of(const Failure &failure) {
    switch (failure.why()) {
    case Reason::gone:
        return {503, "service_gone", "the player service does not run"};
    case Reason::timed_out:
        return {503, silence, "the player service does not answer"};
    case Reason::refused:
        break;
    default:
        return {503, "failed", failure.text};
    }
    switch (failure.number) {
    case ENODATA:
        return {409, "nothing_to_play", "the queue is empty, or there is nothing to play"};
    case ENOENT:
        return {404, "not_found", "there is no such player, source, song or list"};
    case ERANGE:
    case EINVAL:
        return bad_request("a value is out of range");
    case EMSGSIZE:
    case ENOSPC:
        return {409, "queue_full", "the player takes no more songs"};
    default:
        return {500, "refused", failure.text};
    }
}

bool is_silence(const ApiError &error) {
    return std::string_view(error.code()) == silence;
}

} // namespace vantro::web
