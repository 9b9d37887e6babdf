// How long a call of the library may block. The library itself waits without a limit.
#ifndef VANTRO_TOOLS_VANTROCTL_SERVICE_TIME_LIMIT_H
#define VANTRO_TOOLS_VANTROCTL_SERVICE_TIME_LIMIT_H

#include <ctime>

#include <pthread.h>

namespace vantro::ctl {

// While it lives, every blocking call of this thread is interrupted once the time is over. One a
// thread at a time; the limits of several threads do not affect each other.
class TimeLimit {
  public:
    // @param seconds 0: no limit.
    explicit TimeLimit(double seconds);
    ~TimeLimit();
    TimeLimit(const TimeLimit &) = delete;
    TimeLimit &operator=(const TimeLimit &) = delete;

    // Whether this thread's last limit was reached.
    static bool reached();

  private:
    timer_t timer_ = {};
    bool timed_ = false;
};

// Interrupts the thread's blocking call, as if its time were over. A thread that is just about to
// block is not interrupted, so a caller that waits for the thread's end must repeat this.
void interrupt_thread(pthread_t thread);

} // namespace vantro::ctl

#endif
