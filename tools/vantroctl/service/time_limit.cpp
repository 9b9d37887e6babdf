#include "tools/vantroctl/service/time_limit.h"

#include <cmath>
#include <csignal>

#include <unistd.h>

#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace vantro::ctl {
namespace {

// The alarm repeats: a first signal between two exchanges, or just before one blocks, would be
// missed otherwise.
constexpr long ring_again_ns = 50'000'000;

thread_local volatile std::sig_atomic_t time_is_up = 0;

void ring(int) {
    time_is_up = 1;
}

void listen_for_rings() {
    struct sigaction action = {};
    action.sa_handler = ring; // Without SA_RESTART, so that a blocked call ends.
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
}

} // namespace

TimeLimit::TimeLimit(double seconds) {
    listen_for_rings();
    time_is_up = 0;
    if (seconds <= 0) {
        return;
    }
    sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID; // An alarm of the process may ring in any thread.
    event.sigev_signo = SIGALRM;
    event.sigev_notify_thread_id = gettid();
    timed_ = timer_create(CLOCK_MONOTONIC, &event, &timer_) == 0;
    if (!timed_) {
        return; // The system has no timer left: go on without a limit.
    }
    double whole = 0;
    itimerspec times = {};
    times.it_value.tv_nsec = static_cast<long>(std::modf(seconds, &whole) * 1e9);
    times.it_value.tv_sec = static_cast<time_t>(whole);
    if (times.it_value.tv_sec == 0 && times.it_value.tv_nsec == 0) {
        times.it_value.tv_nsec = 1; // Zero would disarm the timer.
    }
    times.it_interval.tv_nsec = ring_again_ns;
    timer_settime(timer_, 0, &times, nullptr);
}

TimeLimit::~TimeLimit() {
    if (timed_) {
        timer_delete(timer_);
    }
}

bool TimeLimit::reached() {
    return time_is_up != 0;
}

void interrupt_thread(pthread_t thread) {
    pthread_kill(thread, SIGALRM);
}

} // namespace vantro::ctl
