#include "tools/vantroctl/watch/follower.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <iterator>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include <vantro/extras.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/service/library_records.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/watch/inbox.h"
#include "tools/vantroctl/watch/player_mirror.h"

namespace vantro::ctl {
namespace {

constexpr int look_again_ms_min = 200;
constexpr int look_again_ms_max = 1000;
// A change that cannot be decoded is skipped; so many in a row mean that the ring is corrupt.
constexpr int misunderstood_max = 100;
// A service that does not answer in this time is not back yet, and the end of the follower does not
// wait longer for it.
constexpr double look_again_timeout_s = 1;

// Whether an error of the calls for events says that this run of the service is over.
bool means_gone(int error) {
    return error == ESTALE || error == ENOENT || error == ECONNREFUSED;
}

} // namespace

Follower::Follower(const ClientOptions &options, Inbox &inbox) : options_(options), inbox_(inbox) {
    begin(options_.timeout_s);
}

Follower::~Follower() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const MutexLock lock(lock_);
        stopping_ = true;
        changed_.notify_all();
        if (waiting_for_) {
            vantro_event_wake(waiting_for_);
        }
    }
    thread_.join();
}

void Follower::start() {
    thread_ = std::thread([this] { run(); });
}

void Follower::begin(double timeout_s) {
    client_ = std::make_unique<Client>(ClientOptions{options_.player, timeout_s});
    PlayerMirror mirror(options_.player);
    std::vector<PlayerEvent> others; // Those that the mirror does not keep.
    for (;;) {
        PlayerEvent event;
        const Look found = look(event);
        if (found == Look::gone) {
            fail(errno);
        }
        if (found == Look::nothing) {
            break;
        }
        mirror.apply(event);
        if (event.kind == PlayerEvent::Kind::object || event.kind == PlayerEvent::Kind::error) {
            others.push_back(std::move(event));
        }
    }
    picture_ = mirror.events();
    std::move(others.begin(), others.end(), std::back_inserter(picture_));
}

Follower::Look Follower::look(PlayerEvent &event) {
    for (int misunderstood = 0;;) {
        const VantroEvent *record = vantro_event_get(client_->handle());
        if (!record) {
            if (errno == EBADMSG && misunderstood++ < misunderstood_max) {
                continue;
            }
            if (errno == EBADMSG || means_gone(errno)) {
                return Look::gone;
            }
            fail(errno);
        }
        if (record->type == VANTRO_EVENT_NONE && !record->object_name) {
            return Look::nothing;
        }
        if (std::optional<PlayerEvent> known = player_event_of(*record)) {
            event = std::move(*known);
            event.player = options_.player;
            return Look::event;
        }
    }
}

void Follower::fail(int error) const {
    const std::string player = clean_text(options_.player);
    if (means_gone(error)) {
        throw Failure(
            Outcome::absent,
            fmt::format("no events of player \"{}\": does its service publish any?", player));
    }
    if (error == EBADMSG) {
        throw Failure(Outcome::failed,
                      fmt::format("the events of player \"{}\" cannot be understood; are service "
                                  "and tool of one version?",
                                  player));
    }
    throw Failure(error == EACCES ? Outcome::denied : Outcome::failed,
                  fmt::format("cannot follow player \"{}\": {}", player, std::strerror(error)));
}

void Follower::run() {
    try {
        do {
            inbox_.put(std::exchange(picture_, {}));
            follow();
            client_.reset();
        } while (!stopped_within(0) && wait_for_service());
    } catch (...) {
        inbox_.fail(std::current_exception());
    }
    client_.reset();
}

void Follower::wake_by(VantroHandle *handle) {
    const MutexLock lock(lock_);
    waiting_for_ = handle;
}

void Follower::follow() {
    const struct Wakeable {
        explicit Wakeable(Follower &its) : follower(its) {
            follower.wake_by(follower.client_->handle());
        }
        ~Wakeable() { follower.wake_by(nullptr); }
        Follower &follower;
    } wakeable(*this);
    while (!stopped_within(0)) {
        PlayerEvent event;
        const Look found = look(event);
        if (found == Look::gone) {
            return;
        }
        if (found == Look::event) {
            if (event.kind != PlayerEvent::Kind::state || event.modes != event.previous) {
                inbox_.put({std::move(event)});
            }
        } else if (vantro_event_wait(client_->handle()) != 0 && errno != EINTR) {
            if (means_gone(errno)) {
                return;
            }
            fail(errno);
        }
    }
}

bool Follower::wait_for_service() {
    inbox_.put({event_of(PlayerEvent::Kind::gone)});
    // Why it could not be followed. A reason is told when it comes twice in a row: many pass at
    // once.
    std::string last;
    std::string told = Client::no_service;
    for (int pause_ms = look_again_ms_min; !stopped_within(pause_ms);
         pause_ms = std::min(pause_ms * 2, look_again_ms_max)) {
        try {
            begin(std::min(look_again_timeout_s,
                           options_.timeout_s > 0 ? options_.timeout_s : look_again_timeout_s));
            picture_.insert(picture_.begin(), event_of(PlayerEvent::Kind::back));
            return true;
        } catch (const Failure &failure) {
            client_.reset();
            if (std::exchange(last, failure.text) == failure.text && last != told) {
                told = last;
                PlayerEvent event = event_of(PlayerEvent::Kind::waiting);
                event.reason = last;
                inbox_.put({std::move(event)});
            }
        }
    }
    return false;
}

bool Follower::stopped_within(int ms) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    const MutexLock lock(lock_);
    while (!stopping_ && ms > 0 && changed_.wait_until(lock_, end)) {
    }
    return stopping_;
}

PlayerEvent Follower::event_of(PlayerEvent::Kind kind) const {
    PlayerEvent event;
    event.kind = kind;
    event.player = options_.player;
    return event;
}

} // namespace vantro::ctl
