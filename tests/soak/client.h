// The clients of the soak, each a process of its own, and what they share with it.
#ifndef VANTRO_TESTS_SOAK_CLIENT_H
#define VANTRO_TESTS_SOAK_CLIENT_H

#include <atomic>
#include <cstdint>
#include <string>

namespace vantro::soak {

constexpr int players = 4;
constexpr int songs = 40;

// What all processes share.
struct Shared {
    std::atomic<int> generation; // of the service; odd while there is none
    std::atomic<bool> stop;
    std::atomic<long> lives, calls, answers, interrupted;
    int32_t source;
    int32_t parent; // the process that starts the clients
    char ids[songs][64];
};
extern Shared *shared;

// How many descriptors a process has open. Those of the catalogue's file are not counted: a service
// keeps as many as it once needed at a time.
long descriptors_of(const std::string &process);

std::string title(int song);

// Runs clients one after another until it is told to stop. Ends with a code other than 0 if an
// answer is wrong.
[[noreturn]] void run_client(unsigned seed);

// Notes the songs that the first service lists, in a process that ends before there are clients.
int note_songs();

} // namespace vantro::soak

#endif
