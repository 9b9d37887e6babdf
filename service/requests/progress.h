// The progress of each serving thread, for detecting a stuck one.
#ifndef VANTRO_SERVICE_REQUESTS_PROGRESS_H
#define VANTRO_SERVICE_REQUESTS_PROGRESS_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vantro::service::requests {

// The number of threads that can be watched at once: more than the number of serving threads.
inline constexpr size_t steps_max = 256;

// One piece of work of the calling thread, from constructor to destructor.
class Step {
  public:
    Step() { add(1); }
    ~Step() { add(1); }
    Step(const Step &) = delete;
    Step &operator=(const Step &) = delete;

    // The calling thread, which is in a step, starts another piece of work.
    static void next() { add(2); }

  private:
    // The count is odd while its thread works. No other thread writes it.
    static void add(uint64_t steps) {
        std::atomic<uint64_t> &count = own_count();
        count.store(count.load(std::memory_order_relaxed) + steps, std::memory_order_relaxed);
    }
    static std::atomic<uint64_t> &own_count();
};

// Compares the threads' progress with that at the previous call.
class Progress {
  public:
    // Whether no thread has been at the same piece of work since the previous call.
    bool gets_on();

  private:
    std::array<uint64_t, steps_max> before_ = {};
};

} // namespace vantro::service::requests

#endif
