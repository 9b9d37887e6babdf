// Returns freed heap memory to the system after a load.
//
// The heap keeps freed memory: after a thousand long listings that is several times the amount that
// the service needs. Returning it takes milliseconds in which allocating threads wait, so a
// separate thread does it some time after the load began, and not with each answer. Without a load
// the thread sleeps.
#ifndef VANTRO_SERVICE_MEMORY_RETURN_H
#define VANTRO_SERVICE_MEMORY_RETURN_H

#include <atomic>
#include <chrono>
#include <optional>

#include "service/playback/worker.h"

namespace vantro::service {

class MemoryReturn {
  public:
    // Returns memory `delay` after the first note(), so that a continuous load costs little.
    explicit MemoryReturn(std::chrono::nanoseconds delay = std::chrono::seconds(5));

    // Throws std::system_error if the thread cannot be made.
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
