#include "service/requests/turns.h"

#include <algorithm>
#include <utility>

namespace vantro::service::requests {

namespace {

constexpr size_t clients_kept = 64;

} // namespace

Turns::Place Turns::next_place(int32_t client) {
    forget_rested();
    uint64_t &last = last_[client];
    const bool rested = last + 1 < round_;
    last = std::max(last + 1, round_);
    return {last, !rested, ++arrivals_};
}

// Keeps the size of the table proportional to the number of active clients.
void Turns::forget_rested() {
    if (last_.size() < forget_at_) {
        return;
    }
    std::erase_if(last_,
                  [this](const auto &each) REQUIRES(mutex_) { return each.second + 1 < round_; });
    forget_at_ = std::max(clients_kept, 2 * last_.size());
}

bool Turns::begin(int32_t client) {
    const MutexLock guard(mutex_);
    if (taken_ == places_) {
        return false;
    }
    round_ = std::get<0>(next_place(client));
    ++taken_;
    return true;
}

bool Turns::leave(int32_t client, Work work) {
    const MutexLock guard(mutex_);
    if (stopped_) {
        return true;
    }
    const Place place = next_place(client);
    if (taken_ < places_) {
        round_ = std::get<0>(place);
        ++taken_;
        return false;
    }
    waiting_.emplace(place, std::move(work));
    return true;
}

void Turns::finish() {
    MutexLock lock(mutex_);
    while (!waiting_.empty()) {
        auto piece = waiting_.extract(waiting_.begin());
        round_ = std::get<0>(piece.key());
        lock.unlock();
        piece.mapped()();
        piece = {}; // the work's data are freed without the lock
        lock.lock();
    }
    --taken_;
}

void Turns::forget(int32_t client) noexcept {
    const MutexLock guard(mutex_);
    last_.erase(client);
}

void Turns::stop() {
    std::map<Place, Work> dropped; // freed after the lock is released
    const MutexLock guard(mutex_);
    stopped_ = true;
    dropped.swap(waiting_);
}

} // namespace vantro::service::requests
