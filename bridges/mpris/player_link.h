// A connection for following and controlling a player of the service, and the player's mirror.
#ifndef VANTRO_BRIDGES_MPRIS_PLAYER_LINK_H
#define VANTRO_BRIDGES_MPRIS_PLAYER_LINK_H

#include <chrono>
#include <string>
#include <utility>

#include <vantro/vantro.hpp>

#include "bridges/mpris/player_mirror.h"

namespace vantro::mpris {

class PlayerLink {
  public:
    // How long the loop waits for an answer of the service. If the service is stopped, the bridge
    // is blocked for that time.
    static constexpr std::chrono::milliseconds answer_limit{2000};

    // Connects and opens the player; reads the complete state into the mirror.
    static Result<PlayerLink> open(const std::string &name);

    // For commands and queries. Call follow() after a command: the events of its changes have
    // arrived by then.
    Player &player() { return player_; }
    const PlayerMirror &mirror() const { return mirror_; }
    // For a loop: readable when follow() should be called.
    int descriptor() const { return descriptor_; }

    // Moves within the track. This always counts as a jump, also a short one.
    Result<void> seek(std::chrono::milliseconds position);

    // Reads the pending events. @return success, or the reason for which the player can no longer
    // be followed.
    Result<void> follow();

    // Whether the position jumped since the last call.
    bool take_jump() { return std::exchange(jumped_, false); }
    bool take_source_news() { return mirror_.take_source_news(); }

  private:
    explicit PlayerLink(Player player) : player_(std::move(player)) {}

    // @return whether there were any.
    Result<bool> read_events();
    void ask_for_song();
    void ask_for_volume();

    Player player_;
    PlayerMirror mirror_;
    int descriptor_ = -1;
    bool jumped_ = false;
};

} // namespace vantro::mpris

#endif
