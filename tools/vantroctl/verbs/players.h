// The players of the service.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_PLAYERS_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_PLAYERS_H

#include <string>
#include <vector>

#include "tools/vantroctl/service/client.h"
#include "tools/vantroctl/verbs/listings.h"

namespace vantro::ctl {

// Their names, in the service's order. @throws Failure.
std::vector<std::string> player_names(Client &client);

// Lists them, with what each is doing. If one cannot be asked, the run fails.
void run_players(const ClientOptions &options, const ListOptions &list);

} // namespace vantro::ctl

#endif
