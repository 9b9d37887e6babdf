// The verbs that change the tracks of the player's session.
#ifndef VANTRO_TOOLS_VANTROCTL_VERBS_QUEUE_H
#define VANTRO_TOOLS_VANTROCTL_VERBS_QUEUE_H

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vantroctl/model/command_result.h"
#include "tools/vantroctl/verbs/listings.h"

namespace vantro::ctl {

class Client;

// Tracks by their numbers, from 1, first and last.
struct TrackRange {
    int32_t first = 0;
    int32_t last = 0;
};

// "3" or "3-7", or nothing.
std::optional<TrackRange> parse_track_range(std::string_view text);

// The nodes that lines of a listing name: of each line the first column that is a node, or else its
// first column.
std::vector<std::string> nodes_in(std::istream &lines);

// The nodes of which a session is to be made. Nodes are written as parse_ref() reads them; "-"
// stands for those that standard input names. With `search` they are words instead, and stand for
// the songs of every source, or of --source, in which all of them are found.
struct QueueNodes {
    std::vector<std::string> nodes;
    bool search = false;
};

// @param number of the song to begin with, from 1.
CommandResult run_load(Client &client, const ListOptions &options, const QueueNodes &nodes,
                       int32_t number, bool play);

// @param verb "add" for after all tracks, "insert" for after the current one.
CommandResult run_add(Client &client, const ListOptions &options, const std::string &verb,
                      const QueueNodes &nodes);

// @param ranges as parse_track_range() reads them; they may overlap.
CommandResult run_remove(Client &client, const std::vector<std::string> &ranges);

// Moves a track so that it has another number; both from 1.
CommandResult run_move(Client &client, int32_t from, int32_t to);

// Takes away all tracks but the current one.
CommandResult run_crop(Client &client);

// Leaves the player without tracks.
CommandResult run_clear(Client &client);

} // namespace vantro::ctl

#endif
