// The verbs that search the tracks for the one to go to.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_TRACK_CHOICE_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_TRACK_CHOICE_H

#include <string>
#include <vector>

#include "tools/vantroctl/model/command_result.h"

namespace vantro::ctl {

class Client;

// Goes to the first track whose title, artist or album contains all words, and plays.
CommandResult run_play_found(Client &client, const std::vector<std::string> &words);

// Goes forward by a time, or back if it is negative, if necessary into other tracks.
// @param text as parse_seek() reads it. @throws Failure in random order, since only the service
// knows the next tracks.
CommandResult run_seek_through(Client &client, const std::string &text);

} // namespace vantro::ctl

#endif
