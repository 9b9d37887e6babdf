// The verbs that show or use the catalogue.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_LISTINGS_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_LISTINGS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/vantroctl/model/command_result.h"
#include "tools/vantroctl/model/nodes.h"
#include "tools/vantroctl/text/template.h"

namespace vantro::ctl {

class Client;

// Options for fetching and showing lists.
struct ListOptions {
    std::string player;
    bool json = false;
    bool pager = true;
    std::optional<int32_t> source; // For nodes that are written without their source.
    int32_t offset = 0;
    int32_t limit = 0;                             // Most entries in all; 0: no limit.
    int32_t depth = 0;                             // Levels of a tree; 0: a table.
    std::optional<Template> format = std::nullopt; // For each entry.
};

void run_sources(Client &client, const ListOptions &options);

// @param node in the form of parse_ref(); nothing for the top of every source.
void run_browse(Client &client, const ListOptions &options, const std::optional<std::string> &node);

// @param filter "" for none.
void run_search(Client &client, const ListOptions &options, const std::string &filter,
                const std::string &term);

// Lists the saved playlists, with their nodes for browse and load.
void run_playlists(Client &client, const ListOptions &options);

// The tracks of the current session.
void run_tracks(Client &client, const ListOptions &options);

// @param keys empty for all that have a value.
void run_info(Client &client, const ListOptions &options, const std::string &node,
              const std::vector<std::string> &keys);

// The source and the node that a text names; see parse_ref(). @throws Failure if there are several
// sources and none is named.
Place place_of(Client &client, const ListOptions &options, const std::string &text);

// Shows the track after the current one; nothing if there is none.
// @throws Failure in random order, which only the service knows.
void run_queued(Client &client, const ListOptions &options);

// @param number the track's number in run_tracks(), from 1.
CommandResult run_jump(Client &client, int32_t number);

// The same, and plays.
CommandResult run_play(Client &client, int32_t number);

} // namespace vantro::ctl

#endif
