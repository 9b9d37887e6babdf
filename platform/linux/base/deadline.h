#ifndef VANTRO_PLATFORM_LINUX_BASE_DEADLINE_H
#define VANTRO_PLATFORM_LINUX_BASE_DEADLINE_H

#include <time.h>

#include <cstdint>
#include <optional>

namespace vantro::platform {

// The end of a wait, by the monotonic clock.
class Deadline {
  public:
    // @param timeout_ms from now; below 0: no limit.
    explicit Deadline(int timeout_ms) {
        if (timeout_ms >= 0) {
            end_ns_ = now_ns() + int64_t{timeout_ms} * 1'000'000;
        }
    }

    // The remaining time, at least 0; nothing if there is no limit.
    std::optional<timespec> left() const {
        if (!end_ns_) {
            return std::nullopt;
        }
        const int64_t ns = *end_ns_ - now_ns();
        timespec left = {};
        if (ns > 0) {
            left.tv_sec = static_cast<time_t>(ns / second_ns);
            left.tv_nsec = static_cast<long>(ns % second_ns);
        }
        return left;
    }

  private:
    static constexpr int64_t second_ns = 1'000'000'000;

    static int64_t now_ns() {
        timespec now;
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        return int64_t{now.tv_sec} * second_ns + now.tv_nsec;
    }

    std::optional<int64_t> end_ns_;
};

} // namespace vantro::platform

#endif
