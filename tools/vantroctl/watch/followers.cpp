#include "tools/vantroctl/watch/followers.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include <sys/epoll.h>
#include <unistd.h>

#include <fmt/format.h>

#include "tools/vantroctl/failure.h"

namespace vantro::ctl {
namespace {

// How often a player without a descriptor is polled.
constexpr int look_ms = 250;

[[noreturn]] void fail() {
    throw Failure(Outcome::failed, fmt::format("cannot watch: {}", std::strerror(errno)));
}

} // namespace

Followers::Followers(const std::vector<ClientOptions> &options)
    : descriptor_(epoll_create1(EPOLL_CLOEXEC)) {
    if (descriptor_ < 0) {
        fail();
    }
    try {
        for (const ClientOptions &one : options) {
            followers_.push_back(std::make_unique<Follower>(one));
        }
        listened_.resize(followers_.size(), -1);
        listen_to_new();
    } catch (...) {
        close(descriptor_);
        throw;
    }
}

Followers::~Followers() {
    close(descriptor_);
}

// A closed descriptor leaves the set automatically.
void Followers::listen_to(int descriptor) {
    epoll_event wanted = {};
    wanted.events = EPOLLIN;
    if (epoll_ctl(descriptor_, EPOLL_CTL_ADD, descriptor, &wanted) != 0) {
        fail();
    }
}

void Followers::listen_to_new() {
    for (size_t i = 0; i < followers_.size(); ++i) {
        const int descriptor = followers_[i]->descriptor();
        if (descriptor >= 0 && listened_[i] < 0) {
            listen_to(descriptor);
        }
        listened_[i] = descriptor;
    }
}

int Followers::wake_in_ms() const {
    const bool deaf = std::any_of(followers_.begin(), followers_.end(), [](const auto &follower) {
        return !follower->gone() && follower->descriptor() < 0;
    });
    return deaf ? look_ms : arrival_ ? arrival_->pause_ms() : -1;
}

bool Followers::any_gone() const {
    return std::any_of(followers_.begin(), followers_.end(),
                       [](const auto &follower) { return follower->gone(); });
}

std::vector<PlayerEvent> Followers::take() {
    std::vector<PlayerEvent> events;
    for (const auto &follower : followers_) {
        std::vector<PlayerEvent> more = follower->take();
        std::move(more.begin(), more.end(), std::back_inserter(events));
    }
    listen_to_new(); // A descriptor that has ended is removed before the next can get its number.
    if (any_gone()) {
        look_for_service(events);
        listen_to_new();
    }
    return events;
}

void Followers::look_for_service(std::vector<PlayerEvent> &events) {
    if (!arrival_) {
        arrival_ = std::make_unique<Arrival>();
        if (arrival_->descriptor() >= 0) {
            listen_to(arrival_->descriptor());
        }
    }
    arrival_->prepare();
    bool absent = true;
    for (const auto &follower : followers_) {
        if (follower->gone()) {
            absent = follower->look_for_service(events) && absent;
        }
    }
    if (any_gone()) {
        arrival_->failed(absent);
    } else {
        arrival_.reset();
    }
}

} // namespace vantro::ctl
