#include "service/playback/worker.h"

#include <algorithm>
#include <exception>

#include <pthread.h>

namespace vantro::service::playback {

namespace {

// The pause after a round that failed for lack of memory.
constexpr std::chrono::seconds try_again{1};

// Stands for "never", and can be added to times.
constexpr std::chrono::hours longest{24 * 365};

std::chrono::steady_clock::time_point after(std::chrono::nanoseconds time) {
    return std::chrono::steady_clock::now() + std::min<std::chrono::nanoseconds>(time, longest);
}

} // namespace

void Worker::start() {
    thread_ = std::thread([this] {
        pthread_setname_np(pthread_self(), name_);
        run();
    });
}

void Worker::stop() {
    {
        const MutexLock guard(mutex_);
        stop_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Worker::look_within(std::chrono::nanoseconds time) {
    const Time by = after(time);
    {
        const MutexLock guard(mutex_);
        if (due_ <= by) {
            return;
        }
        due_ = by;
    }
    wake_.notify_one();
}

void Worker::run() {
    MutexLock lock(mutex_);
    while (!stop_) {
        due_ = Time::max();
        lock.unlock();
        std::optional<std::chrono::nanoseconds> next;
        bool failed = false;
        try {
            next = round_();
        } catch (const std::exception &) {
            failed = true;
        }
        ++rounds_;
        lock.lock();
        if (failed) {
            due_ = after(try_again); // not again at once, even if it was requested
        } else if (next) {
            due_ = std::min(due_, after(*next));
        }
        wait_until_due();
    }
}

void Worker::wait_until_due() {
    while (!stop_ && due_ > std::chrono::steady_clock::now()) {
        if (due_ == Time::max()) {
            wake_.wait(mutex_);
        } else {
            wake_.wait_until(mutex_, due_);
        }
    }
}

} // namespace vantro::service::playback
