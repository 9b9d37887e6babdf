// Gives memory that a load has left free in the heap back to the host.
//
// The heap keeps what was freed: after a thousand long listings that is several times what the
// service needs. Giving it back takes milliseconds in which threads that allocate wait, so it is
// done some time after the load began, by a thread of its own, and not with each answer. Without a
// load nothing runs.
#ifndef VANTRO_SERVICE_MEMORY_RETURN_H
#define VANTRO_SERVICE_MEMORY_RETURN_H

#include <atomic>
#include <chrono>
#include <optional>

#include "service/playback/worker.h"

namespace vantro::service {

class MemoryReturn {
  public:
    // Gives back that long after the first note, so that a lasting load costs nothing.
    explicit MemoryReturn(std::chrono::nanoseconds delay = std::chrono::seconds(5));

    // Throws std::system_error if there is no thread to be had.
    void start() { worker_.start(); }

    // Much memory was freed. Any thread; cheap.
    void note();

  private:
    std::optional<std::chrono::nanoseconds> round();

    std::atomic<bool> noted_ = false;
    const std::chrono::nanoseconds delay_;
    bool waits_ = false; // used only by the worker
    playback::Worker worker_;
};

} // namespace vantro::service

#endif
