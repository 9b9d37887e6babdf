// The fields of templates, for players and for nodes.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_FIELDS_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_FIELDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vantroctl/model/nodes.h"
#include "tools/vantroctl/model/player_status.h"

namespace vantro::ctl {

std::vector<std::string_view> status_fields();
// @return "" also if there is no such field.
std::string status_field(const PlayerStatus &status, std::string_view name);

// A node as a line of a list shows it.
struct ListedNode {
    const Node &node;
    int32_t level = 0;                           // In a tree, from 0.
    std::optional<int32_t> index = std::nullopt; // Of a track, from 0.
    bool current = false;                        // The node is the current track.
};

// @param tracks whether to include the fields of tracks.
std::vector<std::string_view> node_fields(bool tracks);
std::string node_field(const ListedNode &listed, std::string_view name);

} // namespace vantro::ctl

#endif
