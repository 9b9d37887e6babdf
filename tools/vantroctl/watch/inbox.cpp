#include "tools/vantroctl/watch/inbox.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/vantroctl/failure.h"

namespace vantro::ctl {
namespace {

// When so many events are held, put() waits.
constexpr size_t events_max = 256;

} // namespace

Inbox::Inbox() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (descriptor_ < 0) {
        throw Failure(Outcome::failed, fmt::format("cannot watch: {}", std::strerror(errno)));
    }
}

Inbox::~Inbox() {
    ::close(descriptor_);
}

void Inbox::ring() {
    const uint64_t one = 1;
    // Fails only when the counter is full, and then the descriptor is readable already.
    [[maybe_unused]] const ssize_t written = write(descriptor_, &one, sizeof one);
}

void Inbox::put(std::vector<PlayerEvent> events) {
    const MutexLock lock(lock_);
    while (!closed_ && events_.size() >= events_max) {
        room_.wait(lock_);
    }
    if (!closed_) {
        std::move(events.begin(), events.end(), std::back_inserter(events_));
        ring();
    }
}

void Inbox::fail(std::exception_ptr failure) {
    const MutexLock lock(lock_);
    if (!failure_) {
        failure_ = std::move(failure);
        ring();
    }
}

std::vector<PlayerEvent> Inbox::take() {
    const MutexLock lock(lock_);
    if (events_.empty() && failure_) {
        std::rethrow_exception(failure_);
    }
    uint64_t rung = 0;
    [[maybe_unused]] const ssize_t got = read(descriptor_, &rung, sizeof rung);
    if (failure_) {
        ring(); // The next take() throws it.
    }
    room_.notify_all();
    return std::exchange(events_, {});
}

void Inbox::close() {
    const MutexLock lock(lock_);
    closed_ = true;
    room_.notify_all();
}

} // namespace vantro::ctl
