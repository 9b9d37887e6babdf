#include "service/requests/open_records.h"

#include <cerrno>

namespace vantro::service::requests {

OpenRecords::Slot *OpenRecords::slot(int32_t index) noexcept {
    const auto at = static_cast<size_t>(index);
    return index >= 0 && at < slots_.size() ? &slots_[at] : nullptr;
}

void OpenRecords::reset(int32_t index, Client client) {
    const MutexLock guard(mutex_);
    if (index >= 0 && static_cast<size_t>(index) >= slots_.size()) {
        slots_.resize(static_cast<size_t>(index) + 1);
    }
    if (Slot *found = slot(index)) {
        client.number = ++last_number_;
        *found = {no_player, client};
    }
}

std::optional<Client> OpenRecords::forget(int32_t index) noexcept {
    const MutexLock guard(mutex_);
    Slot *found = slot(index);
    if (!found) {
        return std::nullopt;
    }
    const std::optional<Client> client = found->client;
    *found = {};
    return client;
}

Client OpenRecords::client(int32_t index) noexcept {
    const MutexLock guard(mutex_);
    const Slot *found = slot(index);
    return found && found->client ? *found->client : Client();
}

int16_t OpenRecords::player(int32_t index) noexcept {
    const MutexLock guard(mutex_);
    const Slot *found = slot(index);
    return found ? found->player : no_player;
}

int OpenRecords::open(int32_t index, int16_t player) noexcept {
    const MutexLock guard(mutex_);
    Slot *found = slot(index);
    if (!found) {
        return ENOTCONN;
    }
    if (found->player != no_player && found->player != player) {
        return EBUSY;
    }
    found->player = player;
    return 0;
}

int OpenRecords::close(int32_t index, int16_t player) noexcept {
    const MutexLock guard(mutex_);
    Slot *found = slot(index);
    if (!found || found->player != player) {
        return ENOTCONN;
    }
    found->player = no_player;
    return 0;
}

} // namespace vantro::service::requests
