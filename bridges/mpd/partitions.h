// The players that clients use, each connected once.
#ifndef VANTRO_BRIDGES_MPD_PARTITIONS_H
#define VANTRO_BRIDGES_MPD_PARTITIONS_H

#include <chrono>
#include <list>
#include <string>
#include <vector>

#include "bridges/mpd/partition.h"

namespace vantro::mpd {

class Partitions {
  public:
    explicit Partitions(const std::string &default_player) { all_.emplace_back(default_player); }

    // The partition with which clients begin.
    Partition &default_partition() { return all_.front(); }

    // The player of that name. @throws Ack if the service has none.
    Partition &get(const std::string &name);

    // The names of the service's players, or, if the service does not list them, of those in use.
    std::vector<std::string> names();

    std::list<Partition> &all() { return all_; }

    // Grows with every change of the catalogue that any partition has noticed.
    uint64_t catalogue_version() const;

    std::chrono::steady_clock::time_point started_at() const { return started_at_; }

  private:
    std::list<Partition> all_; // Clients point into it.
    const std::chrono::steady_clock::time_point started_at_ = std::chrono::steady_clock::now();
};

} // namespace vantro::mpd

#endif
