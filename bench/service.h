// A vantrod of this run's own, with one silent track to play.
#ifndef VANTRO_BENCH_SERVICE_H
#define VANTRO_BENCH_SERVICE_H

#include <memory>
#include <string>

#include <vantro/player.h>

#include "bench/process.h"

namespace vantro::bench {

class Service {
  public:
    /** @param directory where its music is put. */
    explicit Service(const std::string &directory);

    pid_t pid() const { return child_->pid(); }

    static constexpr int threads = 2;

  private:
    std::unique_ptr<Child> child_;
};

struct Disconnect {
    void operator()(VantroHandle *handle) const { vantro_disconnect(handle); }
};
using Player = std::unique_ptr<VantroHandle, Disconnect>;

/** A handle with the service's player open; fails the run where that cannot be had. */
Player open_player();

} // namespace vantro::bench

#endif
