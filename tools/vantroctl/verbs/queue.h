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

// The nodes that the lines of a listing name: for each line the first column that is a node, else
// the first column.
std::vector<std::string> nodes_in(std::istream &lines);

// The nodes from which a session is made. Nodes are in the form of parse_ref(); "-" stands for the
// nodes that standard input names. With `search` they are words instead, and stand for the songs
// that contain all of them, from every source or that of --source.
struct QueueNodes {
    std::vector<std::string> nodes;
    bool search = false;
};

// @param number of the song to begin with, from 1.
CommandResult run_load(Client &client, const ListOptions &options, const QueueNodes &nodes,
                       int32_t number, bool play);

// @param verb "add": after all tracks; "insert": after the current one.
CommandResult run_add(Client &client, const ListOptions &options, const std::string &verb,
                      const QueueNodes &nodes);

// @param ranges in the form of parse_track_range(); they may overlap.
CommandResult run_remove(Client &client, const std::vector<std::string> &ranges);

// Moves a track to another number; both count from 1.
CommandResult run_move(Client &client, int32_t from, int32_t to);

// Puts all tracks except the current one into a random order after it.
CommandResult run_mix(Client &client);

// Removes all tracks except the current one.
CommandResult run_crop(Client &client);

// Removes all tracks.
CommandResult run_clear(Client &client);

} // namespace vantro::ctl

#endif
