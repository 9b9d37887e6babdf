// The measuring loop. Every exchange is timed by itself, so that percentiles can be given.
// Contenders take turns in batches, so that other load on the machine slows all of them.
#ifndef VANTRO_BENCH_MEASURE_H
#define VANTRO_BENCH_MEASURE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace vantro::bench {

class Samples {
  public:
    void add(int64_t nanoseconds) { nanoseconds_.push_back(nanoseconds); }
    void append(const Samples &other);
    void clear() { nanoseconds_.clear(); }

    // The value below which `fraction` of the samples lie, in microseconds.
    double percentile_us(double fraction) const;
    double mean_us() const;

  private:
    std::vector<int64_t> nanoseconds_;
};

inline int64_t now_ns() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Does one thing `count` times, and adds to `samples` how long each time took.
using Batch = std::function<void(size_t count, Samples &samples)>;

// A batch that times each call of `exchange`.
template <typename Exchange>
Batch each(Exchange exchange) {
    return [exchange = std::move(exchange)](size_t count, Samples &samples) mutable {
        for (size_t i = 0; i < count; ++i) {
            const int64_t begin = now_ns();
            exchange();
            samples.add(now_ns() - begin);
        }
    };
}

// Lets the contenders take turns of `batch_size` until each has done `iterations`. Before that each
// has one turn that is not counted: it fills caches and makes connections.
std::vector<Samples> alternate(const std::vector<Batch> &contenders, size_t iterations,
                               size_t batch_size);

} // namespace vantro::bench

#endif
