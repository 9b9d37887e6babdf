// What each messaging library must provide for the comparison, and the message sizes that all of
// them use. The program (peer_main.cpp) starts itself once more as the server, so that the two
// sides of an exchange are two processes.
#ifndef VANTRO_BENCH_PEERS_PEER_H
#define VANTRO_BENCH_PEERS_PEER_H

#include <cstddef>
#include <memory>
#include <string>

#include "bench/child.h"

namespace vantro::bench::peers {

inline constexpr size_t request_bytes = 44;
inline constexpr size_t answer_bytes = 32;

// One client thread's connection to the server.
class Caller {
  public:
    Caller() = default;
    virtual ~Caller() = default;
    Caller(const Caller &) = delete;
    Caller &operator=(const Caller &) = delete;

    // Sends request_bytes bytes and waits for answer_bytes bytes. Ends the program on failure.
    virtual void exchange() = 0;
};

// The server: calls ready() once clients may connect, and answers until the process is killed.
// @param directory a private one; sockets belong there.
void serve(const std::string &directory);

// A client's side, for the calling thread.
std::unique_ptr<Caller> connect(const std::string &directory);

// Tells the client's side that it may connect.
void ready();

// Calls fail() unless the operation succeeded.
inline void check(bool success, const char *what) {
    if (!success) {
        fail(what);
    }
}

} // namespace vantro::bench::peers

#endif
