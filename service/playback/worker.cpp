#include "service/playback/worker.h"

#include <exception>

namespace vantro::service::playback {

namespace {

// After a round for which there was no memory.
constexpr std::chrono::seconds try_again{1};

} // namespace

void Worker::start() {
    thread_ = std::thread([this] { run(); });
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

void Worker::look() {
    {
        const MutexLock guard(mutex_);
        wanted_ = true;
    }
    wake_.notify_one();
}

void Worker::run() {
    MutexLock lock(mutex_);
    while (!stop_) {
        wanted_ = false;
        lock.unlock();
        std::optional<std::chrono::nanoseconds> next;
        bool failed = false;
        try {
            next = round_();
        } catch (const std::exception &) {
            next = try_again;
            failed = true;
        }
        lock.lock();
        wanted_ = wanted_ && !failed; // not again at once
        wait(next);
    }
}

void Worker::wait(std::optional<std::chrono::nanoseconds> time) {
    const auto end = std::chrono::steady_clock::now() + time.value_or(std::chrono::nanoseconds(0));
    bool in_time = true;
    while (!wanted_ && !stop_ && in_time) {
        if (time) {
            in_time = wake_.wait_until(mutex_, end);
        } else {
            wake_.wait(mutex_);
        }
    }
}

} // namespace vantro::service::playback
