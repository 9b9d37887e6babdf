#include "service/watchdog.h"

#include <algorithm>
#include <exception>
#include <utility>

#include <pthread.h>

#include "service/service_manager.h"

namespace vantro::service {

namespace {

// The longest wait for an answer of the channel: the end of the service may have to wait for it.
constexpr std::chrono::milliseconds ask_at_most = std::chrono::seconds(5);

} // namespace

void Watchdog::stop() {
    end();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Watchdog::start(Looks looks) {
    const std::chrono::milliseconds time = service_manager::watchdog_time();
    if (time.count() > 0) {
        thread_ = std::thread([this, looks = std::move(looks), time] {
            pthread_setname_np(pthread_self(), "watchdog");
            run(looks, std::max(time / 3, std::chrono::milliseconds(1)));
        });
    }
}

void Watchdog::end() {
    const MutexLock guard(mutex_);
    ended_ = true;
    wake_.notify_one();
}

void Watchdog::run(const Looks &looks, std::chrono::milliseconds every) {
    do {
        try {
            // All checks run each time: two of them compare with their previous results.
            const bool requests = looks.requests_get_on();
            const bool clock = looks.clock_goes();
            if (looks.channel_answers(std::min(every, ask_at_most)) && requests && clock) {
                service_manager::tell_alive();
            }
        } catch (const std::exception &) {
            // Lack of memory: no notification this time.
        }
    } while (sleep(every));
}

// False if the end has come.
bool Watchdog::sleep(std::chrono::milliseconds time) {
    const auto until = std::chrono::steady_clock::now() + time;
    const MutexLock guard(mutex_);
    while (!ended_ && std::chrono::steady_clock::now() < until) {
        wake_.wait_until(mutex_, until);
    }
    return !ended_;
}

} // namespace vantro::service
