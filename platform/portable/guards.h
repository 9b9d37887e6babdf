#ifndef VANTRO_PLATFORM_PORTABLE_GUARDS_H
#define VANTRO_PLATFORM_PORTABLE_GUARDS_H

#include <cerrno>
#include <new>
#include <pthread.h>

namespace vantro::platform {

// Restores errno at the end of a block, so that clean-up does not change the error of a failed
// call.
class KeepErrno {
  public:
    KeepErrno() : saved_(errno) {}
    ~KeepErrno() { errno = saved_; }
    KeepErrno(const KeepErrno &) = delete;
    KeepErrno &operator=(const KeepErrno &) = delete;

  private:
    int saved_;
};

// Disables thread cancellation for a block: a cancelled thread must not leave a lane half used.
class CancelDisabled {
  public:
    CancelDisabled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_); }
    ~CancelDisabled() { pthread_setcancelstate(previous_, nullptr); }
    CancelDisabled(const CancelDisabled &) = delete;
    CancelDisabled &operator=(const CancelDisabled &) = delete;

    // The caller's previous state.
    int previous() const { return previous_; }

  private:
    int previous_ = PTHREAD_CANCEL_ENABLE;
};

// Sets errno and returns -1, the form of failure in the contract.
inline int fail(int error) {
    errno = error;
    return -1;
}

// Runs a function that may throw std::bad_alloc, which must not cross the contract.
template <typename Function>
int or_no_memory(Function function) {
    try {
        return function();
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}

} // namespace vantro::platform

#endif
