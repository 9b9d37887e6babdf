#include "service/error.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>

#include <fmt/format.h>

#include <vantro/catalogue.h>

namespace vantro::service {

Error Error::failed(Origin origin, int code, std::string_view what) {
    return {origin, code, fmt::format("{}: {}", what, Error(origin, code).reason())};
}

Error::Kind Error::kind() const {
    switch (code_) {
    case 0:
        return Kind::damage;
    case ENOENT:
    case ENOTDIR:
        return Kind::gone;
    case ENOMEM:
    case ENOBUFS:
        return Kind::memory;
    case EMFILE:
    case ENFILE:
        return Kind::descriptors;
    case EINTR:
    case EAGAIN:
        return Kind::moment;
    case EIO:
    case ESTALE:
    case ETIMEDOUT:
        return Kind::read;
    case ENOSPC:
    case EDQUOT:
        return Kind::full;
    default:
        return Kind::other;
    }
}

bool Error::is_want() const {
    const Kind found = kind();
    return found == Kind::memory || found == Kind::descriptors || found == Kind::moment;
}

const char *Error::reason() const noexcept {
    const char *const known = strerrordesc_np(code_);
    return known ? known : "unknown error";
}

Error error_of(const std::exception &thrown) noexcept {
    Error error(Error::Origin::system, ENOMEM);
    if (const auto *own = dynamic_cast<const Error *>(&thrown)) {
        error = Error(own->origin(), own->code());
    } else if (const auto *host = dynamic_cast<const std::system_error *>(&thrown)) {
        error = Error(Error::Origin::system, host->code().value());
    }
    try {
        error = Error(error.origin(), error.code(), thrown.what());
        if (const auto *own = dynamic_cast<const Error *>(&thrown)) {
            error.set_file(own->file());
        }
    } catch (const std::bad_alloc &) {
        // The error is sufficient without its text.
    }
    return error;
}

int32_t result_word(const Error &error) {
    const bool memory = error.kind() == Error::Kind::memory;
    return memory && error.origin() != Error::Origin::catalogue ? ENOMEM : EIO;
}

int32_t track_error(const Error &error) {
    switch (error.kind()) {
    case Error::Kind::gone:
        return VANTRO_ERROR_GONE;
    case Error::Kind::damage:
        return VANTRO_ERROR_DAMAGED;
    default:
        return VANTRO_ERROR_UNREADABLE;
    }
}

std::string log_text(const Error &error) {
    return (error.origin() == Error::Origin::catalogue ? "the catalogue " : "") +
           std::string(error.text());
}

std::string last_words(const Error &error) {
    return error.file().empty() ? log_text(error)
                                : fmt::format("'{}' {}", error.file(), error.text());
}

} // namespace vantro::service
