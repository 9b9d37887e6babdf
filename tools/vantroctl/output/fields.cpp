#include "tools/vantroctl/output/fields.h"

#include <fmt/format.h>

#include "tools/vantroctl/output/node_view.h"
#include "tools/vantroctl/output/status_view.h"
#include "tools/vantroctl/text/node_ref.h"

namespace vantro::ctl {
namespace {

// 0 means unknown.
std::string known(int64_t number) {
    return number > 0 ? fmt::format("{}", number) : "";
}

std::string yes(bool so) {
    return so ? "yes" : "";
}

struct StatusField {
    std::string_view name;
    std::string (*value)(const PlayerStatus &);
};

constexpr StatusField fields_of_status[] = {
    {"player", [](const PlayerStatus &status) { return status.player; }},
    {"state", [](const PlayerStatus &status) { return std::string(state_name(status.state)); }},
    {"position",
     [](const PlayerStatus &status) {
         return status.track ? fmt::format("{}", status.position_ms) : "";
     }},
    {"tracks",
     [](const PlayerStatus &status) { return known(status.session ? status.session->length : 0); }},
    {"repeat", [](const PlayerStatus &status) { return std::string(repeat_name(status.repeat)); }},
    {"shuffle",
     [](const PlayerStatus &status) { return std::string(shuffle_name(status.shuffle)); }},
    {"rate", [](const PlayerStatus &status) { return rate_text(status.rate); }},
    {"volume",
     [](const PlayerStatus &status) {
         return status.volume ? fmt::format("{}", status.volume->level) : "";
     }},
    {"muted",
     [](const PlayerStatus &status) { return yes(status.volume && status.volume->muted); }},
};

struct TrackField {
    std::string_view name;
    std::string (*value)(const TrackStatus &);
};

constexpr TrackField fields_of_track[] = {
    {"track", [](const TrackStatus &track) { return known(int64_t{track.index} + 1); }},
    {"title", [](const TrackStatus &track) { return track.title; }},
    {"artist", [](const TrackStatus &track) { return track.artist; }},
    {"album", [](const TrackStatus &track) { return track.album; }},
    {"genre", [](const TrackStatus &track) { return track.genre; }},
    {"year", [](const TrackStatus &track) { return track.year; }},
    {"disc", [](const TrackStatus &track) { return known(track.disc); }},
    {"number", [](const TrackStatus &track) { return known(track.number); }},
    {"length", [](const TrackStatus &track) { return known(track.duration_ms); }},
    {"name", [](const TrackStatus &track) { return track.node_name; }},
    {"node",
     [](const TrackStatus &track) {
         return track.node_id.empty() ? "" : ref_text(track.source_id, track.node_id);
     }},
};

struct NodeField {
    std::string_view name;
    std::string (*value)(const ListedNode &);
};

constexpr NodeField fields_of_node[] = {
    {"node", [](const ListedNode &listed) { return node_ref(listed.node); }},
    {"source", [](const ListedNode &listed) { return fmt::format("{}", listed.node.source); }},
    {"type",
     [](const ListedNode &listed) { return std::string(node_type_name(listed.node.type)); }},
    {"count", [](const ListedNode &listed) { return fmt::format("{}", listed.node.count); }},
    {"name", [](const ListedNode &listed) { return listed.node.name; }},
    {"title", [](const ListedNode &listed) { return listed.node.name; }},
    {"artist", [](const ListedNode &listed) { return listed.node.artist; }},
    {"album", [](const ListedNode &listed) { return listed.node.album; }},
    {"genre", [](const ListedNode &listed) { return listed.node.genre; }},
    {"year", [](const ListedNode &listed) { return listed.node.year; }},
    {"disc", [](const ListedNode &listed) { return known(listed.node.disc); }},
    {"number", [](const ListedNode &listed) { return known(listed.node.number); }},
    {"length", [](const ListedNode &listed) { return known(listed.node.duration_ms); }},
    {"level", [](const ListedNode &listed) { return fmt::format("{}", listed.level); }},
};

constexpr NodeField fields_of_listed_track[] = {
    {"track",
     [](const ListedNode &listed) { return known(int64_t{listed.index.value_or(-1)} + 1); }},
    {"current", [](const ListedNode &listed) { return yes(listed.current); }},
};

template <class Table>
void add_names(std::vector<std::string_view> &names, const Table &table) {
    for (const auto &field : table) {
        names.push_back(field.name);
    }
}

// The value of a table's field, or "".
template <class Table, class From>
std::string value_in(const Table &table, const From &from, std::string_view name) {
    for (const auto &field : table) {
        if (field.name == name) {
            return field.value(from);
        }
    }
    return {};
}

} // namespace

std::vector<std::string_view> status_fields() {
    std::vector<std::string_view> names;
    add_names(names, fields_of_status);
    add_names(names, fields_of_track);
    return names;
}

std::string status_field(const PlayerStatus &status, std::string_view name) {
    const std::string value = value_in(fields_of_status, status, name);
    return value.empty() && status.track ? value_in(fields_of_track, *status.track, name) : value;
}

std::vector<std::string_view> node_fields(bool tracks) {
    std::vector<std::string_view> names;
    add_names(names, fields_of_node);
    if (tracks) {
        add_names(names, fields_of_listed_track);
    }
    return names;
}

std::string node_field(const ListedNode &listed, std::string_view name) {
    const std::string value = value_in(fields_of_node, listed, name);
    return value.empty() ? value_in(fields_of_listed_track, listed, name) : value;
}

} // namespace vantro::ctl
