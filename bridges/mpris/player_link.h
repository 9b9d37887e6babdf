// A connection to a player of the service, which follows and drives it, and the player's mirror.
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
    // How long the loop waits for an answer of the service. If the service has stopped, the bridge
    // does nothing else for that long.
    static constexpr std::chrono::milliseconds answer_limit{2000};

    // Connects and opens the player; reads the full picture, so that the mirror is right.
    static Result<PlayerLink> open(const std::string &name);

    // For commands and queries. Call follow() after a command: the events of its changes have come
    // by then.
    Player &player() { return player_; }
    const PlayerMirror &mirror() const { return mirror_; }
    // For a loop: readable when follow() is to be called.
    int descriptor() const { return descriptor_; }

    // Moves within the track. That counts as a jump, however short it is.
    Result<void> seek(std::chrono::milliseconds position);

    // Reads the events that there are. @return nothing, or why the player can no longer be
    // followed.
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
