// Signals at random moments, handled without SA_RESTART.
#ifndef VANTRO_TESTS_SUPPORT_INTERRUPTIONS_H
#define VANTRO_TESTS_SUPPORT_INTERRUPTIONS_H

#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <random>

#include <sys/syscall.h>
#include <unistd.h>

#ifndef sigev_notify_thread_id
// The C library's name, if it has it.
#define sigev_notify_thread_id _sigev_un._tid // NOLINT(readability-identifier-naming)
#endif

namespace vantro::test {

// How many signals a whole test sends: under a sanitizer each takes long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr int interruptions_wanted = 10'000;
#else
inline constexpr int interruptions_wanted = 100'000;
#endif

// Interrupts the thread that makes it, by a timer of that thread that is set again at each signal.
// One a thread at a time.
class Interruptions {
  public:
    explicit Interruptions(unsigned seed) {
        struct sigaction action = {};
        action.sa_handler = handle;
        sigaction(SIGUSR1, &action, nullptr); // stays: a last signal may be under way at the end
        mine.random.seed(seed);
        sigevent event = {};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGUSR1;
        event.sigev_notify_thread_id = static_cast<pid_t>(syscall(SYS_gettid));
        timer_create(CLOCK_MONOTONIC, &event, &mine.timer);
        mine.on = true;
        set_timer();
    }
    ~Interruptions() {
        mine.on = false;
        timer_delete(mine.timer);
    }
    Interruptions(const Interruptions &) = delete;
    Interruptions &operator=(const Interruptions &) = delete;

    static inline std::atomic<int> sent = 0;

  private:
    struct Timer {
        timer_t timer;
        std::minstd_rand random;
        volatile bool on;
    };
    static inline thread_local Timer mine = {};

    static void handle(int) {
        if (mine.on) {
            const int error = errno;
            ++sent;
            set_timer();
            errno = error;
        }
    }
    static void set_timer() {
        // Mostly within the next call, and sometimes after several.
        const long most_us = mine.random() % 8 == 0 ? 400 : 40;
        itimerspec next = {};
        next.it_value.tv_nsec = 1000 * (1 + static_cast<long>(mine.random()) % most_us);
        timer_settime(mine.timer, 0, &next, nullptr);
    }
};

// Until enough signals were sent, or the machine is too slow for them.
class InterruptionsLeft {
  public:
    explicit InterruptionsLeft(int wanted) : wanted_(wanted) { Interruptions::sent = 0; }
    explicit operator bool() const {
        return Interruptions::sent < wanted_ && std::chrono::steady_clock::now() < end_;
    }

  private:
    int wanted_;
    std::chrono::steady_clock::time_point end_ =
        std::chrono::steady_clock::now() + std::chrono::seconds(9);
};

} // namespace vantro::test

#endif
