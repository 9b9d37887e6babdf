// The connection to one player of the service.
#ifndef VANTRO_BRIDGES_WEB_PLAYER_LINK_H
#define VANTRO_BRIDGES_WEB_PLAYER_LINK_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <vantro/vantro.hpp>

#include "bridges/sockets/reconnecting.h"
#include "bridges/web/request_body.h"

namespace vantro::web {

// Which parts events have changed.
struct Changes {
    bool state = false;   // Anything in state_json().
    bool sources = false; // The catalogue.

    Changes &operator|=(const Changes &other) {
        state |= other.state;
        sources |= other.sources;
        return *this;
    }
    bool any() const { return state || sources; }
};

// The object outlives the service: if the service has gone, the object tries to connect again,
// after growing delays.
class PlayerLink {
  public:
    using Clock = std::chrono::steady_clock;
    using SharedText = std::shared_ptr<const std::string>;

    explicit PlayerLink(std::string name) : name_(std::move(name)) {}

    const std::string &name() const { return name_; }

    // The player; connects if that is due. @throws ApiError.
    Player &player();

    // The state of the player, in the API's form. Every open page requests it after each change, so
    // it is cached until the next one. Never fails: if the service is gone, the text says so.
    SharedText state_json();

    // The tracks of the current session. @throws ApiError.
    const std::vector<NodeKey> &tracks();
    // Sets the tracks() of a new session, which then need not be read. @throws ApiError.
    void take_tracks(uint64_t tsid, std::vector<NodeKey> tracks);
    // The current session; its id is 0 if there is none. @throws ApiError.
    VantroTrksessionInfo session();
    // The current track's place, if there is one. @throws ApiError.
    std::optional<int32_t> current();

    // Whether events are wanted. Following takes one of the user's few inotify instances; commands
    // alone do not need it.
    void set_followed(bool followed);

    // The descriptor that is readable when take_events() has something to do; -1 without a service.
    int descriptor();
    // The number of connections so far: a new one may get the same descriptor.
    uint64_t connections() const { return connections_; }

    // Reads all events. @return what they have changed.
    Changes take_events();

    bool is_connected() const { return player_.has_value(); }

    // Connects, and follows, if that is due.
    void reconnect();
    // When to call reconnect(); nothing while there is nothing to try.
    std::optional<Clock::time_point> retry_at() const;

    // Call it when a call found that the service has gone. @param silent whether the service runs
    // but has not answered.
    void leave(bool silent = false);

    // Call it after a command: not every change causes an event.
    void forget_state() {
        state_.reset();
        news_.state |= followed_ && !following_;
    }

  private:
    void connect();
    void follow();
    Changes changes_of(const Event &event);
    bool jumped(std::chrono::milliseconds position, const VantroStateInfo &now);

    const std::string name_;
    std::optional<Player> player_;
    uint64_t connections_ = 0;
    bool followed_ = false;  // Events are wanted,
    bool following_ = false; // and come.
    int misunderstood_ = 0;  // Events in a row.

    SharedText state_;
    Clock::time_point state_at_{};
    int32_t error_ = 0; // VANTRO_ERROR_* of the last track that could not be played; 0: none.

    uint64_t tracks_of_ = 0;
    std::vector<NodeKey> tracks_;

    Changes news_; // The parts that a new connection, or its end, may have changed.
    sockets::Reconnecting reconnecting_;
    std::optional<Failure> failure_; // The reason for which there is no connection.

    // The last reported position and its time: mere progress is not a change.
    std::chrono::milliseconds position_{0};
    Clock::time_point position_at_{};
    float speed_ = 0;
    bool position_known_ = false;
};

} // namespace vantro::web

#endif
