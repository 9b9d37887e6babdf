// A vantrod of this run's own.
#ifndef VANTRO_BENCH_SERVICE_H
#define VANTRO_BENCH_SERVICE_H

#include <memory>
#include <string>
#include <vector>

#include <vantro/player.h>

#include "bench/process.h"

namespace vantro::bench {

class Service {
  public:
    // Starts it, and returns when it answers.
    // @param state its state directory, made if it is missing. No other service may use it.
    // @param audio options for the sound output.
    Service(const std::string &music, const std::string &state,
            const std::vector<std::string> &audio = {"--audio", "clock"});

    void wait_until_scanned() { child_.wait_for_line("vantrod: scanned"); }

    pid_t pid() const { return child_.pid(); }

    static constexpr int threads = 2;

  private:
    Child child_;
};

// A vantrod with one silent track to play, which it has scanned.
class SilentService : public Service {
  public:
    // @param directory gets the track and the catalogue.
    explicit SilentService(const std::string &directory,
                           const std::vector<std::string> &audio = {"--audio", "clock"});
};

// Proportional set size of a process.
double pss_bytes(pid_t pid);

// The resident set of a process, with shared pages counted in full, and the largest that it ever
// had.
double resident_bytes(pid_t pid);
double most_resident_bytes(pid_t pid);

struct Disconnect {
    void operator()(VantroHandle *handle) const { vantro_disconnect(handle); }
};
using Player = std::unique_ptr<VantroHandle, Disconnect>;

// A handle with an open player, by default vantrod's. Fails the run if there is no such player.
Player open_player(const char *name = "main");

} // namespace vantro::bench

#endif
