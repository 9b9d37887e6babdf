// Texts and tables for nodes, sources and values.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_NODE_VIEW_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_NODE_VIEW_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/vantroctl/model/nodes.h"
#include "tools/vantroctl/output/table.h"

namespace vantro::ctl {

// "menu", "song" and so on; "unknown" for numbers that have no name.
const char *node_type_name(int32_t type);
const char *source_type_name(int32_t type);
const char *source_status_name(int32_t status);

// The code of an error that stopped a player: "gone", "unreadable", "damaged",
// "output", or "unknown".
const char *error_name(int32_t code);

// The same as a text for users.
const char *error_words(int32_t code);

// "browse", "search" and so on, for each bit that has a name.
std::vector<std::string> capability_names(uint64_t capabilities);

// The reference that names a node; "" for a song that is gone, which has no reference.
std::string node_ref(const Node &node);

// Tables; `width` is that of Table. Each kind of row belongs to its own kind of table.
Table node_table(std::optional<int> width);
Table::Row node_row(const Node &node, std::optional<int> width);

Table source_table(std::optional<int> width);
Table::Row source_row(const Source &source);

Table track_table(std::optional<int> width);
// @param index from 0; shown from 1.
Table::Row track_row(const Node &node, int32_t index, bool current, std::optional<int> width);

// A node of a tree: indented by its level, with its count and its reference.
std::string tree_line(const Node &node, int level, std::optional<int> width);

// A "key: value" line for each; without a value nothing follows the colon. For a terminal, lines
// are aligned and folded to its width, and numbers are written for people.
std::string render_values(const Values &values, std::optional<int> width);

} // namespace vantro::ctl

#endif
