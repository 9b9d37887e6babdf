// Threads that are cancelled.
#ifndef VANTRO_EVENTS_CANCELLATION_H
#define VANTRO_EVENTS_CANCELLATION_H

#include <pthread.h>

namespace vantro::events {

// Puts a cancellation off to the end of a scope: what is half made or half taken apart by then
// would be lost.
class CancelDisabled {
  public:
    CancelDisabled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_); }
    ~CancelDisabled() { pthread_setcancelstate(previous_, nullptr); }
    CancelDisabled(const CancelDisabled &) = delete;
    CancelDisabled &operator=(const CancelDisabled &) = delete;

  private:
    int previous_ = PTHREAD_CANCEL_ENABLE;
};

} // namespace vantro::events

#endif
