// Threads that each wait for the events of a player, get them, and wait again.
#ifndef VANTRO_BENCH_WAITING_READERS_H
#define VANTRO_BENCH_WAITING_READERS_H

#include <atomic>
#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <vantro/player.h>

namespace vantro::bench {

// Gets events until nothing is new. Returns how many events came.
size_t drain(VantroHandle *player);

void wait_for_event(VantroHandle *player);

class WaitingReaders {
  public:
    enum class Run { beside_caller, anywhere }; // on which processors

    // `change` makes the player's publisher publish something.
    WaitingReaders(int count, std::string player, Run where, std::function<void()> change);
    ~WaitingReaders();
    WaitingReaders(const WaitingReaders &) = delete;
    WaitingReaders &operator=(const WaitingReaders &) = delete;

    // Returns when every thread sleeps in a wait that it began after the last change. Call it
    // before each change.
    void sleep();

  private:
    void run(std::atomic<pid_t> &thread);

    const std::string player_;
    const Run where_;
    const std::function<void()> change_;
    size_t waits_ = 0; // that each thread must have begun
    std::atomic<bool> ending_{false};
    std::atomic<size_t> turns_{0};
    std::deque<std::atomic<pid_t>> thread_ids_;
    std::vector<std::thread> threads_;
};

} // namespace vantro::bench

#endif
