#include "service/requests/progress.h"

namespace vantro::service::requests {

namespace {

struct Place {
    std::atomic<bool> taken = false;
    std::atomic<uint64_t> count = 0;
};

std::array<Place, steps_max> places;

// The place of one thread, which another thread can take after this one has ended. The count is
// kept, so that it never decreases for a thread that compares it.
class OwnPlace {
  public:
    OwnPlace() {
        for (Place &each : places) {
            if (!each.taken.exchange(true, std::memory_order_acquire)) {
                place_ = &each;
                return;
            }
        }
    }
    ~OwnPlace() {
        if (place_ != &spare_) {
            place_->taken.store(false, std::memory_order_release);
        }
    }
    OwnPlace(const OwnPlace &) = delete;
    OwnPlace &operator=(const OwnPlace &) = delete;

    std::atomic<uint64_t> &count() { return place_->count; }

  private:
    Place spare_; // if no place is free; such a thread is not watched
    Place *place_ = &spare_;
};

} // namespace

std::atomic<uint64_t> &Step::own_count() {
    thread_local OwnPlace place;
    return place.count();
}

bool Progress::gets_on() {
    bool all = true;
    for (size_t i = 0; i < steps_max; ++i) {
        const uint64_t now = places[i].count.load(std::memory_order_relaxed);
        all = all && (now % 2 == 0 || now != before_[i]);
        before_[i] = now;
    }
    return all;
}

} // namespace vantro::service::requests
