// Checks that a player plays after a command to play.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_PLAY_WATCH_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_PLAY_WATCH_H

#include <cstdint>
#include <optional>

namespace vantro::ctl {

class Client;

// Follows a player during one command. The service opens files and outputs after it has answered,
// so only the player's events give the reason if nothing plays. Construct it before the command.
class PlayWatch {
  public:
    // If this user may not follow the player, await() does nothing.
    explicit PlayWatch(Client &client);

    // Waits until the position moves, some 50 ms, or for at most two seconds while an output is
    // being opened. @throws Failure, with the reason, if the player does not play.
    void await();

  private:
    void take_events();
    void explain_stop() const;

    Client &client_;
    bool following_ = true;
    int32_t error_ = 0;                  // VANTRO_ERROR_* of its last stop
    std::optional<int32_t> position_ms_; // the last reported one
};

} // namespace vantro::ctl

#endif
