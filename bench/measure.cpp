#include "bench/measure.h"

#include <algorithm>
#include <numeric>

namespace vantro::bench {

void Samples::append(const Samples &other) {
    nanoseconds_.insert(nanoseconds_.end(), other.nanoseconds_.begin(), other.nanoseconds_.end());
}

double Samples::percentile_us(double fraction) const {
    if (nanoseconds_.empty()) {
        return 0;
    }
    std::vector<int64_t> sorted = nanoseconds_;
    const auto wanted = static_cast<size_t>(fraction * static_cast<double>(sorted.size() - 1));
    const auto place = sorted.begin() + static_cast<ptrdiff_t>(wanted);
    std::nth_element(sorted.begin(), place, sorted.end());
    return static_cast<double>(*place) / 1000;
}

double Samples::mean_us() const {
    const auto sum = std::accumulate(nanoseconds_.begin(), nanoseconds_.end(), int64_t{0});
    return nanoseconds_.empty()
               ? 0
               : static_cast<double>(sum) / 1000 / static_cast<double>(nanoseconds_.size());
}

std::vector<Samples> alternate(const std::vector<Batch> &contenders, size_t iterations,
                               size_t batch_size) {
    std::vector<Samples> samples(contenders.size());
    for (size_t i = 0; i < contenders.size(); ++i) {
        contenders[i](std::min(iterations, batch_size), samples[i]);
        samples[i].clear();
    }
    for (size_t done = 0; done < iterations; done += batch_size) {
        for (size_t i = 0; i < contenders.size(); ++i) {
            contenders[i](std::min(batch_size, iterations - done), samples[i]);
        }
    }
    return samples;
}

} // namespace vantro::bench
