#include "bridges/web/player_link.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <vantro/catalogue.h>

#include "bridges/web/records_json.h"
#include "bridges/web/service_call.h"

namespace vantro::web {
namespace {

using std::chrono::milliseconds;

// The service itself corrects positions by less than this; a jump that is shorter is not heard.
constexpr milliseconds jump_least(700);

// A cached state is used no longer than this: after that its position is out of date.
constexpr milliseconds state_age_max(1000);

// In a row. If the file of a player's objects is corrupt, only such events come.
constexpr int misunderstood_max = 100;

// Tracks fetched at a time.
constexpr int32_t tracks_page = 2000;

// A session may be replaced while it is read.
constexpr int attempts = 5;

} // namespace

void PlayerLink::connect() {
    Result<Player> player =
        reconnecting_.connect(name_.c_str(), [](Player &) { return Result<void>(); });
    if (!player) {
        failure_ = player.failure();
        return;
    }
    player_.emplace(*std::move(player));
    failure_.reset();
    tracks_of_ = 0;
    error_ = 0;
    ++connections_;
    news_ = {connections_ > 1, connections_ > 1};
    if (followed_) {
        follow();
    }
}

void PlayerLink::follow() {
    // Set also if following fails: pages then get the error, and later the state when following
    // succeeds.
    news_.state = true;
    if (!player_->events().descriptor()) {
        reconnecting_.failed(Clock::now());
        return;
    }
    following_ = true;
    position_known_ = false;
    reconnecting_.succeeded();
    const Changes news = std::exchange(news_, {});
    take_events(); // the first events report the present state, not changes
    news_ |= news;
}

void PlayerLink::set_followed(bool followed) {
    if (!std::exchange(followed_, followed) && followed && player_ && !following_) {
        follow();
    }
}

Player &PlayerLink::player() {
    if (!player_ && reconnecting_.is_due_when_asked()) {
        connect();
    }
    if (!player_) {
        throw api_error_of(*failure_);
    }
    return *player_;
}

int PlayerLink::descriptor() {
    if (!player_ || !following_) {
        return -1;
    }
    const Result<int> found = player_->events().descriptor();
    return found ? *found : -1;
}

void PlayerLink::leave(bool silent) {
    if (!player_) {
        return; // already known; the delay before the next attempt stays
    }
    following_ = false;
    reconnecting_.lost(player_, silent);
    failure_ = Failure::of_errno(silent ? ETIMEDOUT : ESTALE);
    if (silent) {
        failure_->reason = VANTRO_FAILURE_TIMED_OUT;
    }
    news_.state = true;
    state_.reset();
}

std::optional<PlayerLink::Clock::time_point> PlayerLink::retry_at() const {
    return player_ && (following_ || !followed_) ? std::nullopt
                                                 : std::optional(reconnecting_.retry_at());
}

void PlayerLink::reconnect() {
    if (!reconnecting_.is_due()) {
        return;
    }
    if (!player_) {
        connect();
    } else if (followed_ && !following_) {
        follow();
    }
}

Changes PlayerLink::take_events() {
    Changes changed;
    while (player_ && following_) {
        const Result<std::optional<Event>> event = player_->events().next();
        if (!event) {
            if (event.failure().number == EBADMSG && ++misunderstood_ < misunderstood_max) {
                break; // the following events are read the next time
            }
            const bool corrupt = misunderstood_ == misunderstood_max;
            misunderstood_ = 0;
            leave();
            if (corrupt) {
                reconnecting_.put_off();
            }
            break;
        }
        misunderstood_ = 0;
        if (!*event) {
            break;
        }
        changed |= changes_of(**event);
    }
    changed |= std::exchange(news_, {});
    if (changed.state) {
        state_.reset();
    }
    return changed;
}

bool PlayerLink::jumped(milliseconds position, const VantroStateInfo &now) {
    const Clock::time_point time = Clock::now();
    const std::chrono::duration<double, std::milli> passed = time - position_at_;
    const milliseconds expected =
        position_ + milliseconds(static_cast<int64_t>(passed.count() * speed_));
    position_ = position;
    position_at_ = time;
    speed_ = now.state == VANTRO_STATE_PLAYING ? now.rate : 0;
    const milliseconds off = position > expected ? position - expected : expected - position;
    return std::exchange(position_known_, true) && off > jump_least;
}

Changes PlayerLink::changes_of(const Event &event) {
    if (const auto *failed = event.as<ErrorEvent>()) {
        error_ = failed->code;
        return {true, false};
    }
    if (event.as<SourceEvent>()) {
        return {false, true};
    }
    if (const auto *status = event.as<PositionEvent>()) {
        return {jumped(status->position, event.now()), false};
    }
    if (event.as<TrackEvent>() && event.now().state == VANTRO_STATE_PLAYING) {
        error_ = 0;
    }
    return {event.as<StateEvent>() || event.as<SessionEvent>() || event.as<TrackEvent>() ||
                event.object() == "volume",
            false};
}

PlayerLink::SharedText PlayerLink::state_json() {
    if (state_ && Clock::now() - state_at_ < state_age_max) {
        return state_;
    }
    std::string text;
    try {
        text = player_state_json(name_, player(), error_);
    } catch (const ApiError &error) {
        if (error.status() == 503) {
            leave(is_silence(error));
        }
        text = absent_player_json(name_, error);
    }
    state_ = std::make_shared<const std::string>(std::move(text));
    state_at_ = Clock::now();
    return state_;
}

VantroTrksessionInfo PlayerLink::session() {
    return checked(player().status())->trksession;
}

std::optional<int32_t> PlayerLink::current() {
    const int32_t index = checked(player().status())->index;
    return index < 0 ? std::nullopt : std::optional(index);
}

void PlayerLink::take_tracks(uint64_t tsid, std::vector<NodeKey> tracks) {
    // Songs that have left the catalogue in between are missing.
    const VantroTrksessionInfo now = session();
    const bool same = now.tsid == tsid && static_cast<size_t>(now.length) == tracks.size();
    tracks_of_ = same ? tsid : 0;
    tracks_ = std::move(tracks);
}

const std::vector<NodeKey> &PlayerLink::tracks() {
    for (int attempt = 1;; ++attempt) {
        const VantroTrksessionInfo now = session();
        if (now.type == VANTRO_TRKSESSION_NONE) {
            tracks_.clear();
            tracks_of_ = 0;
            return tracks_;
        }
        if (now.tsid == tracks_of_) {
            return tracks_;
        }
        try {
            std::vector<NodeKey> all;
            for (bool more = true; more;) {
                MediaNode *nodes = nullptr;
                int count = tracks_page;
                const auto from = static_cast<int32_t>(all.size());
                if (vantro_get_trksession_tracks(player().handle(), now.tsid, from, &count,
                                                 &nodes) != 0) {
                    throw api_error_of(Failure::last());
                }
                const List<MediaNode> page(nodes, count);
                for (const MediaNode &node : page) {
                    all.push_back({node.ms_id, std::string(text(node.id))});
                }
                more = page.size() == static_cast<size_t>(tracks_page);
            }
            tracks_ = std::move(all);
            tracks_of_ = now.tsid;
        } catch (const ApiError &error) {
            if (error.status() != 404 || attempt == attempts) {
                throw;
            }
        }
    }
}

} // namespace vantro::web
