// The service's place in the system: its name, its threads, its end. One a process.
#ifndef VANTRO_SERVICE_SERVER_H
#define VANTRO_SERVICE_SERVER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "service/error.h"
#include "service/options.h"

namespace vantro::service {

// Largest request that is received, in bytes: a track session of 150,000 nodes, or one for as many
// keys as are taken, 100 bytes each. A thread keeps the room that the largest one took.
inline constexpr int32_t request_max = 4 * 1024 * 1024;

// Held answers that a client may ask for.
inline constexpr int32_t queue_max = 16;

class Server {
  public:
    Server() = default;
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // Takes the name and attaches the service. Returns why it cannot, if it
    // cannot.
    std::optional<Error> attach(const Options &options);

    // Receives requests in `threads` threads and one more until stop(); see handlers.h. Calls
    // `ready` once they run. Returns why the threads cannot be had, if they cannot.
    std::optional<Error> run(int threads, const std::function<void()> &ready);

    // Whether a serving thread answers a message within the time. One thread at a time.
    bool answers(std::chrono::milliseconds time);

    // Ends run(), now or as soon as it begins. Any thread, once attached.
    void stop();

  private:
    int wake_ = -1; // pulse connection to the server's own channel
    int ask_ = -1;  // connection to it, once answers() was called
};

} // namespace vantro::service

#endif
