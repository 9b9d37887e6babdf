/**
 * @file
 * Results that carry their error.
 */
#ifndef VANTRO_CPP_RESULT_HPP
#define VANTRO_CPP_RESULT_HPP

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>
#include <variant>

#include <vantro/extras.h>

namespace vantro {

/** The reason of a failure; VANTRO_FAILURE_* of extras.h. */
enum class Reason : int32_t {
    none = VANTRO_FAILURE_NONE,
    gone = VANTRO_FAILURE_GONE,
    refused = VANTRO_FAILURE_REFUSED,
    interrupted = VANTRO_FAILURE_INTERRUPTED,
    timed_out = VANTRO_FAILURE_TIMED_OUT,
    malformed = VANTRO_FAILURE_MALFORMED,
    no_memory = VANTRO_FAILURE_NO_MEMORY,
    invalid = VANTRO_FAILURE_INVALID,
    other = VANTRO_FAILURE_OTHER,
    changed = VANTRO_FAILURE_CHANGED
};

/** A failure: its reason, an error number or 0, and a text for people. */
struct Failure : VantroFailure {
    /** @return the reason, as an enum. */
    Reason why() const { return static_cast<Reason>(reason); }

    /** @return the failure of the last failed call in this thread, except calls for events. */
    static Failure last() {
        Failure failure{};
        vantro_last_failure(&failure);
        return failure;
    }

    /**
     * For calls for events, which report by errno.
     * @param number an error number.
     * @return the failure with that number, and the system's text for it.
     */
    static Failure of_errno(int number) {
        Failure failure{};
        failure.reason = reason_of(number);
        failure.number = number;
        // strerror_r() has two forms; the one that returns a text need not write the buffer.
        keep(failure, ::strerror_r(number, failure.text, sizeof failure.text));
        return failure;
    }

  private:
    static int32_t reason_of(int number) {
        switch (number) {
        case ENOENT:
        case ECONNREFUSED:
        case ESTALE:
            return VANTRO_FAILURE_GONE;
        case EINTR:
            return VANTRO_FAILURE_INTERRUPTED;
        case EBADMSG:
            return VANTRO_FAILURE_MALFORMED;
        case ENOMEM:
            return VANTRO_FAILURE_NO_MEMORY;
        case EINVAL:
        case EBADF:
            return VANTRO_FAILURE_INVALID;
        default:
            return VANTRO_FAILURE_OTHER;
        }
    }
    static void keep(Failure &, int) {}
    static void keep(Failure &failure, const char *text) {
        if (text != failure.text) {
            std::strncpy(failure.text, text, sizeof failure.text - 1);
        }
    }
};

/** The exception of Result::or_throw(). */
class Error : public std::runtime_error {
  public:
    /** @param failure copied; what() gives its text. */
    explicit Error(const Failure &failure) : std::runtime_error(failure.text), failure_(failure) {}
    /** @return the failure. */
    const Failure &failure() const { return failure_; }

  private:
    Failure failure_;
};

/** A value, or the failure for which there is none. */
template <typename Value>
class [[nodiscard]] Result {
  public:
    /** @param value the value to hold. */
    Result(Value value) : held_(std::in_place_index<0>, std::move(value)) {}
    /** @param failure the failure for which there is no value. */
    Result(const Failure &failure) : held_(std::in_place_index<1>, failure) {}

    /** @return whether there is a value. */
    bool has_value() const { return held_.index() == 0; }
    /** @return has_value(). */
    explicit operator bool() const { return has_value(); }

    /** @return the value; call it only if there is one. */
    Value &operator*() & { return *std::get_if<0>(&held_); }
    /** @return the value; call it only if there is one. */
    const Value &operator*() const & { return *std::get_if<0>(&held_); }
    /** @return the value; call it only if there is one. */
    Value &&operator*() && { return std::move(*std::get_if<0>(&held_)); }
    /** @return the value; call it only if there is one. */
    Value *operator->() { return std::get_if<0>(&held_); }
    /** @return the value; call it only if there is one. */
    const Value *operator->() const { return std::get_if<0>(&held_); }

    /** @return the failure; call it only if there is no value. */
    const Failure &failure() const { return *std::get_if<1>(&held_); }

    /** @return the value. @throws Error if there is none. */
    Value &or_throw() & {
        check();
        return **this;
    }
    /** @return the value. @throws Error if there is none. */
    const Value &or_throw() const & {
        check();
        return **this;
    }
    /** @return the value. @throws Error if there is none. */
    Value or_throw() && {
        check();
        return *std::move(*this);
    }

    /** @return the value, or `other` if there is none. @param other any value. */
    Value value_or(Value other) && { return has_value() ? *std::move(*this) : std::move(other); }

  private:
    void check() const {
        if (!has_value()) {
            throw Error(failure());
        }
    }

    std::variant<Value, Failure> held_;
};

/** Success, or a failure. */
template <>
class [[nodiscard]] Result<void> {
  public:
    /** Success. */
    Result() = default;
    /** @param failure the failure. */
    Result(const Failure &failure) : failure_(failure) {}

    /** @return whether the call succeeded. */
    bool has_value() const { return !failure_; }
    /** @return has_value(). */
    explicit operator bool() const { return has_value(); }

    /** @return the failure; call it only if there is one. */
    const Failure &failure() const { return *failure_; }

    /** @throws Error if there is a failure. */
    void or_throw() const {
        if (failure_) {
            throw Error(*failure_);
        }
    }

  private:
    std::optional<Failure> failure_;
};

} // namespace vantro

#endif
