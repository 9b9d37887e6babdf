// An output that is a named pipe, for a program that plays to many machines.
#ifndef VANTRO_SERVICE_SOUND_PIPE_OUTPUT_H
#define VANTRO_SERVICE_SOUND_PIPE_OUTPUT_H

#include <atomic>
#include <string>
#include <thread>

#include "service/error.h"

namespace vantro::service::sound {

// What goes through it: little-endian samples of 16 bits, two channels.
inline constexpr const char *pipe_rate = "48000";

// Holds the reading end, and reads nothing. So whoever writes waits for a reader when the pipe is
// full, rather than at its opening, and does not fail while there is none.
class PipeOutput {
  public:
    PipeOutput() = default;
    // Whoever writes must have ended.
    ~PipeOutput();
    PipeOutput(const PipeOutput &) = delete;
    PipeOutput &operator=(const PipeOutput &) = delete;

    // Makes the pipe, with permission for its owner and group, if it is missing. Returns why it
    // cannot be used, if it cannot.
    std::optional<Error> open(const std::string &path);
    // From now on it reads what nobody else does, so that whoever writes, or opens the pipe once
    // more, waits for no reader. Any one thread at a time.
    void give_up();

  private:
    void discard() noexcept;

    int reader_ = -1;
    std::thread discarder_;
    std::atomic<bool> ended_ = false;
};

} // namespace vantro::service::sound

#endif
