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
        const std::lock_guard<std::mutex> guard(mutex_);
        stop_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Worker::look() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        wanted_ = true;
    }
    wake_.notify_one();
}

void Worker::run() {
    std::unique_lock<std::mutex> lock(mutex_);
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
        const auto called = [this] { return wanted_ || stop_; };
        if (next) {
            wake_.wait_for(lock, *next, called);
        } else {
            wake_.wait(lock, called);
        }
    }
}

} // namespace vantro::service::playback
