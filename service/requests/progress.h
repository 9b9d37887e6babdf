// How far each serving thread has come, for whoever looks whether one of them is stuck.
#ifndef VANTRO_SERVICE_REQUESTS_PROGRESS_H
#define VANTRO_SERVICE_REQUESTS_PROGRESS_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vantro::service::requests {

// More threads than serve, and those that end with a client.
inline constexpr size_t steps_max = 256;

// One piece of work of the calling thread, from its making to its end.
class Step {
  public:
    Step() { add(1); }
    ~Step() { add(1); }
    Step(const Step &) = delete;
    Step &operator=(const Step &) = delete;

    // The calling thread, which is in a step, goes on with another piece.
    static void next() { add(2); }

  private:
    // The count is odd while its thread works. No other thread writes it.
    static void add(uint64_t steps) {
        std::atomic<uint64_t> &count = own_count();
        count.store(count.load(std::memory_order_relaxed) + steps, std::memory_order_relaxed);
    }
    static std::atomic<uint64_t> &own_count();
};

// Compares the threads with what they were at the call before.
class Progress {
  public:
    // Whether no thread has been at one piece of work ever since the call before.
    bool gets_on();

  private:
    std::array<uint64_t, steps_max> before_ = {};
};

} // namespace vantro::service::requests

#endif
