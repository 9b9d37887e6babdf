#include "bench/waiting_readers.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <fmt/format.h>

#include "bench/process.h"
#include "bench/publisher.h"
#include "bench/service.h"

namespace vantro::bench {

size_t drain(VantroHandle *player) {
    for (size_t events = 0;; ++events) {
        const VantroEvent *event = vantro_event_get(player);
        if (!event) {
            fail_errno("an event failed");
        }
        if (!event->object_name) {
            return events;
        }
        if (event->type == VANTRO_EVENT_NONE) {
            fail(fmt::format("an event of {} was not understood", event->object_name));
        }
    }
}

void wait_for_event(VantroHandle *player) {
    if (vantro_event_wait(player) != 0) {
        fail_errno("waiting for an event");
    }
}

WaitingReaders::WaitingReaders(int count, std::string player, Run where,
                               std::function<void()> change)
    : player_(std::move(player)), where_(where), change_(std::move(change)) {
    for (int i = 0; i < count; ++i) {
        threads_.emplace_back([this, thread = &thread_ids_.emplace_back(0)] { run(*thread); });
    }
}

WaitingReaders::~WaitingReaders() {
    sleep();
    ending_ = true;
    change_();
    for (std::thread &thread : threads_) {
        thread.join();
    }
}

void WaitingReaders::run(std::atomic<pid_t> &thread) {
    thread = static_cast<pid_t>(syscall(SYS_gettid));
    if (where_ == Run::anywhere) {
        run_anywhere();
    }
    const Player player = open_player(player_.c_str());
    drain(player.get());
    while (!ending_) {
        ++turns_;
        turns_.notify_all();
        wait_for_event(player.get());
        drain(player.get());
    }
}

void WaitingReaders::sleep() {
    ++waits_;
    for (size_t now = turns_; now < waits_ * threads_.size(); now = turns_) {
        turns_.wait(now);
    }
    for (const std::atomic<pid_t> &thread : thread_ids_) {
        while (!is_asleep(getpid(), thread)) {
        }
    }
}

} // namespace vantro::bench
