// The catalogue as the tool keeps it: sources, nodes and values.
#ifndef VANTRO_TOOLS_VANTROCTL_MODEL_NODES_H
#define VANTRO_TOOLS_VANTROCTL_MODEL_NODES_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vantro::ctl {

struct Source {
    int32_t id = 0;
    std::string uid;
    std::string name; // For people to read.
    int32_t type = 0;
    int32_t status = 0;
    uint64_t capabilities = 0;

    bool operator==(const Source &) const = default;
};

struct Node {
    int32_t source = 0;
    std::string id;
    std::string name;
    int32_t type = 0;
    int32_t count = 0;
    std::string artist = {}; // Of songs and albums, if the service has it in lists.
    std::string album = {};
    int32_t duration_ms = 0;
    std::string genre = {}; // This and the members below are for songs only.
    std::string year = {};
    int32_t disc = 0;
    int32_t number = 0;           // On the disc.
    std::vector<Node> nodes = {}; // The nodes below it, if they were asked for.
};

// The metadata of a node: each key, and its value if it has one.
using Values = std::vector<std::pair<std::string, std::optional<std::string>>>;

// The place of a node: its source and its id.
struct Place {
    int32_t source = 0;
    std::string id;
};

} // namespace vantro::ctl

#endif
