// The players of the service.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_PLAYERS_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_PLAYERS_H

#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/verbs/listings.h"

namespace vantro::ctl {

// Lists the players, with the state and the track of each. If a query fails, the run fails.
void run_players(const ClientOptions &options, const ListOptions &list);

} // namespace vantro::ctl

#endif
