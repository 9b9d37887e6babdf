#include "bridges/mpd/service_call.h"

#include <cerrno>

#include <fmt/format.h>

namespace vantro::mpd {

Ack ack_of(const Failure &failure) {
    switch (failure.why()) {
    case Reason::gone:
        return ServiceGone();
    case Reason::timed_out:
        return ServiceSilent();
    case Reason::refused:
        break;
    default:
        return {AckCode::system, failure.text};
    }
    switch (failure.number) {
    case ENODATA:
        return {AckCode::player_sync, "the queue is empty, or there is nothing to play"};
    case ENOENT:
        return {AckCode::no_exist, "no such song, directory or player"};
    case ERANGE:
    case EINVAL:
        return {AckCode::argument, "out of range"};
    case EMSGSIZE:
    case ENOSPC:
        return {AckCode::playlist_max, "the player takes no more"};
    default:
        return {AckCode::system, fmt::format("the player service refuses: {}", failure.text)};
    }
}

void throw_ack(const Failure &failure) {
    if (failure.why() == Reason::gone) {
        throw ServiceGone();
    }
    if (failure.why() == Reason::timed_out) {
        throw ServiceSilent();
    }
    throw ack_of(failure);
}

} // namespace vantro::mpd
