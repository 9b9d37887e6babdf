// The service's name, its threads and its end. One object a process.
#ifndef VANTRO_SERVICE_SERVER_H
#define VANTRO_SERVICE_SERVER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "service/error.h"
#include "service/options.h"

namespace vantro::service {

// Largest request that is received, in bytes: a track session of 150,000 nodes, or a request with
// the largest number of keys, 100 bytes each. A thread keeps the memory of the largest request that
// it received.
inline constexpr int32_t request_max = 4 * 1024 * 1024;

// Answers that are held for one client at most.
inline constexpr int32_t queue_max = 16;

class Server {
  public:
    Server() = default;
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // Takes the name and attaches the service. Returns an error if it fails.
    std::optional<Error> attach(const Options &options);

    // Receives requests in `threads` + 1 threads until stop(); see handlers.h. Calls `ready` once
    // they run. Returns an error if the threads cannot be made.
    std::optional<Error> run(int threads, const std::function<void()> &ready);

    // Whether a serving thread answers a message within `time`. One thread at a time.
    bool answers(std::chrono::milliseconds time);

    // Ends run(), now or as soon as it begins. Any thread, once attached.
    void stop();

  private:
    int wake_ = -1; // pulse connection to the server's own channel
    int ask_ = -1;  // connection to the same channel, once answers() was called
};

} // namespace vantro::service

#endif
