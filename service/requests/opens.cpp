#include "service/requests/opens.h"

#include <cerrno>

namespace vantro::service::requests {

int16_t *Opens::slot(int32_t index) noexcept {
    const auto at = static_cast<size_t>(index);
    return index >= 0 && at < players_.size() ? &players_[at] : nullptr;
}

void Opens::reset(int32_t index) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (index >= 0 && static_cast<size_t>(index) >= players_.size()) {
        players_.resize(static_cast<size_t>(index) + 1, no_player);
    }
    if (int16_t *player = slot(index)) {
        *player = no_player;
    }
}

void Opens::forget(int32_t index) noexcept {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (int16_t *player = slot(index)) {
        *player = no_player;
    }
}

int16_t Opens::player(int32_t index) noexcept {
    const std::lock_guard<std::mutex> guard(mutex_);
    const int16_t *player = slot(index);
    return player ? *player : no_player;
}

int Opens::open(int32_t index, int16_t player) noexcept {
    const std::lock_guard<std::mutex> guard(mutex_);
    int16_t *current = slot(index);
    if (!current) {
        return ENOTCONN;
    }
    if (*current != no_player && *current != player) {
        return EBUSY;
    }
    *current = player;
    return 0;
}

int Opens::close(int32_t index, int16_t player) noexcept {
    const std::lock_guard<std::mutex> guard(mutex_);
    int16_t *current = slot(index);
    if (!current || *current != player) {
        return ENOTCONN;
    }
    *current = no_player;
    return 0;
}

} // namespace vantro::service::requests
