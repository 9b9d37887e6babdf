// A vantrod of this run's own.
#ifndef VANTRO_BENCH_SERVICE_H
#define VANTRO_BENCH_SERVICE_H

#include <memory>
#include <string>

#include <vantro/player.h>

#include "bench/process.h"

namespace vantro::bench {

class Service {
  public:
    // Starts it, and returns when it answers.
    // @param state made where it is missing. Of two services with the same one, the first has
    // ended.
    Service(const std::string &music, const std::string &state);

    void wait_until_scanned() { child_.wait_for_line("vantrod: scanned"); }

    pid_t pid() const { return child_.pid(); }

    static constexpr int threads = 2;

  private:
    Child child_;
};

// A vantrod with one silent track to play, which it has seen.
class SilentService : public Service {
  public:
    // @param directory where the track and the catalogue are put.
    explicit SilentService(const std::string &directory);
};

// Proportional set size of a process.
double pss_bytes(pid_t pid);

// What a process has in memory, shared pages counted whole, and the most that it ever had.
double resident_bytes(pid_t pid);
double most_resident_bytes(pid_t pid);

struct Disconnect {
    void operator()(VantroHandle *handle) const { vantro_disconnect(handle); }
};
using Player = std::unique_ptr<VantroHandle, Disconnect>;

// A handle with a player open, of vantrod's if none is named; fails the run where there is none.
Player open_player(const char *name = "main");

} // namespace vantro::bench

#endif
