// Saving and deleting playlists.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_PLAYLISTS_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_PLAYLISTS_H

#include <string>

#include "tools/vantroctl/model/command_result.h"

namespace vantro::ctl {

class Client;

// Saves the tracks of the current session. Reports how many of them have left the catalogue.
CommandResult run_save(Client &client, const std::string &name, bool replace);

CommandResult run_delete_playlist(Client &client, const std::string &name);

} // namespace vantro::ctl

#endif
