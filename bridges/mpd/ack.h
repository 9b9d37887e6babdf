// The error with which a command is refused.
#ifndef VANTRO_BRIDGES_MPD_ACK_H
#define VANTRO_BRIDGES_MPD_ACK_H

#include <stdexcept>
#include <string>

namespace vantro::mpd {

// The protocol's numbers for kinds of errors.
enum class AckCode {
    not_list = 1,
    argument = 2,
    password = 3,
    permission = 4,
    unknown = 5,
    no_exist = 50,
    playlist_max = 51,
    system = 52,
    playlist_load = 53,
    update_already = 54,
    player_sync = 55,
    exist = 56
};

// Ends the command that throws it, and the command list that contains the command.
class Ack : public std::runtime_error {
  public:
    Ack(AckCode code, const std::string &text) : std::runtime_error(text), code_(code) {}
    AckCode code() const { return code_; }

  private:
    AckCode code_;
};

} // namespace vantro::mpd

#endif
