/** Results that carry their error. */
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

/** Why a call failed; VANTRO_FAILURE_* of extras.h. */
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
    Reason why() const { return static_cast<Reason>(reason); }

    /** Of the last call that failed in this thread, but for those for events. */
    static Failure last() {
        Failure failure{};
        vantro_last_failure(&failure);
        return failure;
    }

    /** Of a call for events, which says it by errno. */
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

/** What Result::or_throw() throws. */
class Error : public std::runtime_error {
  public:
    explicit Error(const Failure &failure) : std::runtime_error(failure.text), failure_(failure) {}
    const Failure &failure() const { return failure_; }

  private:
    Failure failure_;
};

/** A value, or the failure for which there is none. */
template <typename Value>
class [[nodiscard]] Result {
  public:
    Result(Value value) : held_(std::in_place_index<0>, std::move(value)) {}
    Result(const Failure &failure) : held_(std::in_place_index<1>, failure) {}

    bool has_value() const { return held_.index() == 0; }
    explicit operator bool() const { return has_value(); }

    /** The value; only where there is one. */
    Value &operator*() & { return *std::get_if<0>(&held_); }
    const Value &operator*() const & { return *std::get_if<0>(&held_); }
    Value &&operator*() && { return std::move(*std::get_if<0>(&held_)); }
    Value *operator->() { return std::get_if<0>(&held_); }
    const Value *operator->() const { return std::get_if<0>(&held_); }

    /** The failure; only where there is no value. */
    const Failure &failure() const { return *std::get_if<1>(&held_); }

    /** The value. @throws Error where there is none. */
    Value &or_throw() & {
        check();
        return **this;
    }
    const Value &or_throw() const & {
        check();
        return **this;
    }
    Value or_throw() && {
        check();
        return *std::move(*this);
    }

    /** The value, or another one where there is none. */
    Value value_or(Value other) && { return has_value() ? *std::move(*this) : std::move(other); }

  private:
    void check() const {
        if (!has_value()) {
            throw Error(failure());
        }
    }

    std::variant<Value, Failure> held_;
};

/** Done, or the failure for which it was not. */
template <>
class [[nodiscard]] Result<void> {
  public:
    Result() = default;
    Result(const Failure &failure) : failure_(failure) {}

    bool has_value() const { return !failure_; }
    explicit operator bool() const { return has_value(); }

    /** The failure; only where there is one. */
    const Failure &failure() const { return *failure_; }

    /** @throws Error where it was not done. */
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
