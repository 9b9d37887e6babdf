// How long an event loop may sleep.
#ifndef VANTRO_BRIDGES_SOCKETS_WAIT_TIME_H
#define VANTRO_BRIDGES_SOCKETS_WAIT_TIME_H

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace vantro::sockets {

// The time until the earliest of several moments, in the form of epoll_wait().
class WaitTime {
  public:
    // @param ms milliseconds at most; below 0: without limit.
    explicit WaitTime(int64_t ms = -1) : ms_(ms) {}

    void end_at(std::chrono::steady_clock::time_point moment) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(moment - std::chrono::steady_clock::now());
        const int64_t ms = std::max<int64_t>(left.count(), 0);
        ms_ = ms_ < 0 ? ms : std::min(ms_, ms);
    }

    int ms() const { return static_cast<int>(std::min<int64_t>(ms_, INT32_MAX)); }

  private:
    int64_t ms_;
};

} // namespace vantro::sockets

#endif
