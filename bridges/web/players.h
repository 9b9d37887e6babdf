// The players that clients have used, each with its connection.
#ifndef VANTRO_BRIDGES_WEB_PLAYERS_H
#define VANTRO_BRIDGES_WEB_PLAYERS_H

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bridges/sockets/reconnecting.h"
#include "bridges/web/player_link.h"

namespace vantro::web {

class Players {
  public:
    // The player of that name. @throws ApiError if the service has no such player: connections are
    // kept only to players that exist, so that invented names cost nothing.
    PlayerLink &find(const std::string &name);

    // @throws ApiError.
    std::vector<std::string> names();

    std::map<std::string, PlayerLink> &all() { return links_; }

  private:
    std::map<std::string, PlayerLink> links_;
    sockets::Reconnecting reconnecting_; // For querying the names.
    std::optional<Failure> failure_;     // The reason for which the last attempt failed.
};

} // namespace vantro::web

#endif
