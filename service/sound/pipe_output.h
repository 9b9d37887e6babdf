// An output to a named pipe, for a program that plays on many machines.
#ifndef VANTRO_SERVICE_SOUND_PIPE_OUTPUT_H
#define VANTRO_SERVICE_SOUND_PIPE_OUTPUT_H

#include <atomic>
#include <string>
#include <thread>

#include "service/error.h"

namespace vantro::service::sound {

// The rate of the samples, which are little-endian, 16 bits, two channels.
inline constexpr const char *pipe_rate = "48000";

// Holds the reading end open and reads nothing. So the writer does not wait for a reader when it
// opens the pipe, does not fail while there is no reader, and waits only when the pipe is full.
class PipeOutput {
  public:
    PipeOutput() = default;
    // The writer must have ended.
    ~PipeOutput();
    PipeOutput(const PipeOutput &) = delete;
    PipeOutput &operator=(const PipeOutput &) = delete;

    // If the pipe is missing, makes it, with permissions for owner and group. Returns the error if
    // the pipe cannot be used.
    std::optional<Error> open(const std::string &path);
    // From now on reads everything that no other reader takes, so that a writer, or a thread that
    // opens the pipe again, never waits for a reader. Any thread, one at a time.
    void give_up();

  private:
    void discard() noexcept;

    int reader_ = -1;
    std::thread discarder_;
    std::atomic<bool> ended_ = false;
};

} // namespace vantro::service::sound

#endif
