#include "bridges/sockets/reconnecting.h"

#include <algorithm>

namespace vantro::sockets {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds first_delay(100);
constexpr milliseconds first_delay_of_silent(1000);
constexpr milliseconds longest_delay(5000);
constexpr milliseconds long_attempt(500);

} // namespace

void Reconnecting::failed(Clock::time_point begun) {
    delay_ = std::clamp(delay_ * 2, silent_ ? first_delay_of_silent : first_delay, longest_delay);
    // All clients wait during an attempt, so after a long one the next is made later.
    const Clock::time_point now = Clock::now();
    asked_retry_at_ = now - begun > long_attempt ? now + (now - begun) : now;
    retry_at_ = std::max(now + delay_, asked_retry_at_);
    if (silent_) {
        asked_retry_at_ = retry_at_ = now + delay_;
    }
}

void Reconnecting::succeeded() {
    silent_ = false;
    delay_ = milliseconds(0);
}

void Reconnecting::lost(std::optional<Player> &player, bool silent) {
    if (silent && player) {
        hurry(*player);
    }
    player.reset();
    silent_ = silent;
    retry_at_ = {}; // the next service may already run
    asked_retry_at_ = {};
    if (silent) {
        failed(Clock::now());
    }
}

void Reconnecting::put_off() {
    retry_at_ = Clock::now() + longest_delay;
}

} // namespace vantro::sockets
