#include "tools/vantroctl/watch/follower.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include <vantro/extras.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/service/library_records.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/watch/player_mirror.h"

namespace vantro::ctl {
namespace {

// Events taken at a time.
constexpr size_t events_max = 256;
// A change that cannot be decoded is skipped. So many in a row mean that the ring is corrupt.
constexpr int misunderstood_max = 100;
// A service that does not answer in this time counts as not back yet.
constexpr double look_again_timeout_s = 1;

// Whether an error of the calls for events says that this run of the service is over.
bool means_gone(int error) {
    return error == ESTALE || error == ENOENT || error == ECONNREFUSED;
}

} // namespace

Follower::Follower(const ClientOptions &options)
    : options_(options), told_reason_(NoService::words) {
    begin(options_.timeout_s);
    options_.wait_s.reset(); // From now on the events say that the service is gone.
}

void Follower::leave() {
    client_.reset();
    descriptor_ = -1;
}

// Opens the descriptor of the events. If none is free, the tool works without, and tries again.
void Follower::need_descriptor() {
    if (descriptor_ < 0) {
        descriptor_ = vantro_event_fd(client_->handle());
        if (descriptor_ < 0 && errno != EMFILE && errno != ENFILE && errno != ENOSPC) {
            fail(errno);
        }
    }
}

void Follower::begin(double timeout_s) {
    client_ = std::make_unique<Client>(ClientOptions{options_.player, timeout_s, options_.wait_s});
    need_descriptor();
    PlayerMirror mirror(options_.player);
    std::vector<PlayerEvent> others; // Events that the mirror does not keep.
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
            fmt::format("player \"{}\" has no events: does its service publish any?", player));
    }
    if (error == EBADMSG) {
        throw Failure(Outcome::failed,
                      fmt::format("the events of player \"{}\" cannot be understood; are service "
                                  "and tool of the same version?",
                                  player));
    }
    throw Failure(error == EACCES ? Outcome::denied : Outcome::failed,
                  fmt::format("cannot follow player \"{}\": {}", player, std::strerror(error)));
}

std::vector<PlayerEvent> Follower::take() {
    std::vector<PlayerEvent> events = std::exchange(picture_, {});
    if (client_) {
        need_descriptor();
    }
    while (client_ && events.size() < events_max) {
        PlayerEvent event;
        const Look found = look(event);
        if (found == Look::nothing) {
            break;
        }
        if (found == Look::gone) {
            leave();
            events.push_back(event_of(PlayerEvent::Kind::gone));
        } else if (event.kind != PlayerEvent::Kind::state || event.modes != event.previous) {
            events.push_back(std::move(event));
        }
    }
    return events;
}

bool Follower::look_for_service(std::vector<PlayerEvent> &events) {
    try {
        begin(std::min(look_again_timeout_s,
                       options_.timeout_s > 0 ? options_.timeout_s : look_again_timeout_s));
    } catch (const Failure &failure) {
        leave();
        // A reason is reported only if it comes twice in a row: many reasons disappear at once.
        if (std::exchange(last_reason_, failure.text) == failure.text &&
            last_reason_ != told_reason_) {
            told_reason_ = last_reason_;
            events.push_back(event_of(PlayerEvent::Kind::waiting));
            events.back().reason = last_reason_;
        }
        return failure.text == NoService::words;
    }
    last_reason_.clear();
    told_reason_ = NoService::words;
    events.push_back(event_of(PlayerEvent::Kind::back));
    const std::vector<PlayerEvent> picture = std::exchange(picture_, {});
    events.insert(events.end(), picture.begin(), picture.end());
    return false;
}

PlayerEvent Follower::event_of(PlayerEvent::Kind kind) const {
    PlayerEvent event;
    event.kind = kind;
    event.player = options_.player;
    return event;
}

} // namespace vantro::ctl
