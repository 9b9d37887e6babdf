// org.mpris.MediaPlayer2.Playlists: the playlists of the service's catalogue.
#include <algorithm>
#include <cstring>

#include "bridges/mpris/bus/interfaces.h"

namespace vantro::mpris {

namespace {

// The node of a media source that has its playlists.
constexpr const char *playlists_node = "playlists";
// The most playlists in one answer.
constexpr uint32_t playlists_max = 10'000;

struct Playlist {
    std::string path;
    std::string name;
};

// All playlists, by name. Within a source the service has sorted them.
Result<std::vector<Playlist>> list_playlists(Player &player) {
    const Result<List<MediaSource>> sources = player.sources();
    if (!sources) {
        return sources.failure();
    }
    std::vector<Playlist> playlists;
    for (const MediaSource &source : *sources) {
        const auto end_before = static_cast<ptrdiff_t>(playlists.size());
        auto nodes = player.browse(source.id, playlists_node);
        for (const MediaNode &node : nodes) {
            if (node.type == VANTRO_NODE_PLAYLIST && playlists.size() < playlists_max) {
                playlists.push_back({path_of(PlaylistNode{source.id, std::string(text(node.id))}),
                                     clean_text(text(node.name))});
            }
        }
        const auto by_name = [](const Playlist &one, const Playlist &other) {
            return std::strcoll(one.name.c_str(), other.name.c_str()) < 0;
        };
        std::inplace_merge(playlists.begin(), playlists.begin() + end_before, playlists.end(),
                           by_name);
    }
    return playlists;
}

int get_playlists(BusPlayer &player, sd_bus_message *call, sd_bus_error *error) {
    uint32_t index = 0;
    uint32_t count = 0;
    const char *order = nullptr; // There is only one order.
    int reversed = 0;
    int result = sd_bus_message_read(call, "uusb", &index, &count, &order, &reversed);
    if (result < 0) {
        return result;
    }
    Result<std::vector<Playlist>> playlists = list_playlists(player.link().player());
    if (!playlists) {
        return set_error(error, playlists.failure());
    }
    if (reversed != 0) {
        std::reverse(playlists->begin(), playlists->end());
    }
    sd_bus_message *reply = nullptr;
    result = sd_bus_message_new_method_return(call, &reply);
    if (result >= 0) {
        result = sd_bus_message_open_container(reply, 'a', "(oss)");
    }
    const size_t end = std::min<size_t>(playlists->size(), size_t{index} + count);
    for (size_t i = index; result >= 0 && i < end; ++i) {
        result = sd_bus_message_append(reply, "(oss)", (*playlists)[i].path.c_str(),
                                       (*playlists)[i].name.c_str(), "");
    }
    if (result >= 0) {
        result = sd_bus_message_close_container(reply);
    }
    if (result >= 0) {
        result = sd_bus_send(nullptr, reply, nullptr);
    }
    sd_bus_message_unref(reply);
    return result;
}

// Destroys the session that the playlist replaces: a player keeps only a few.
Result<void> activate(BusPlayer &player, const PlaylistNode &playlist) {
    Player &service = player.link().player();
    const uint64_t before = player.link().mirror().session().tsid;
    const Result<MetadataPtr> metadata = service.metadata(playlist.ms_id, playlist.node_id.c_str());
    const Result<uint64_t> made =
        service.create_session(playlist.ms_id, playlist.node_id.c_str(), 0, Start::playing);
    if (!made) {
        return made.failure();
    }
    if (before != 0) {
        static_cast<void>(service.destroy_session(before)); // Another client may have done so.
    }
    std::string name = metadata && *metadata ? clean_text(text((*metadata)->title)) : "";
    player.set_active_playlist({*made, playlist, std::move(name)});
    return {};
}

int activate_playlist(BusPlayer &player, sd_bus_message *call, sd_bus_error *error) {
    const char *path = nullptr;
    if (const int result = sd_bus_message_read(call, "o", &path); result < 0) {
        return result;
    }
    const auto playlist = playlist_of(path);
    if (!playlist) {
        return sd_bus_error_setf(error, SD_BUS_ERROR_INVALID_ARGS, "%s is not a playlist", path);
    }
    return player.answer(call, activate(player, *playlist), error);
}

int get_playlist_count(BusPlayer &player, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "u", player.playlist_count());
}

int get_orderings(BusPlayer &, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "as", 1, "Alphabetical");
}

int get_active_playlist(BusPlayer &player, sd_bus_message *reply) {
    const auto active = player.active_playlist();
    return active ? sd_bus_message_append(reply, "(b(oss))", 1, path_of(active->node).c_str(),
                                          active->name.c_str(), "")
                  : sd_bus_message_append(reply, "(b(oss))", 0, "/", "", "");
}

const sd_bus_vtable table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES("ActivatePlaylist", "o", SD_BUS_PARAM(PlaylistId), "", "",
                             on_call<activate_playlist>, 0),
    SD_BUS_METHOD_WITH_NAMES("GetPlaylists", "uusb",
                             SD_BUS_PARAM(Index) SD_BUS_PARAM(MaxCount) SD_BUS_PARAM(Order)
                                 SD_BUS_PARAM(ReverseOrder),
                             "a(oss)", SD_BUS_PARAM(Playlists), on_call<get_playlists>, 0),
    SD_BUS_SIGNAL_WITH_NAMES("PlaylistChanged", "(oss)", SD_BUS_PARAM(Playlist), 0),
    SD_BUS_PROPERTY("PlaylistCount", "u", on_get<get_playlist_count>, 0,
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("Orderings", "as", on_get<get_orderings>, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("ActivePlaylist", "(b(oss))", on_get<get_active_playlist>, 0,
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

} // namespace

uint32_t count_playlists(Player &player) {
    int64_t count = 0;
    if (const Result<List<MediaSource>> sources = player.sources()) {
        for (const MediaSource &source : *sources) {
            for (const MediaNode &node : player.browse(source.id)) {
                count += node.type == VANTRO_NODE_PLAYLIST ? 1
                         : text(node.id) == playlists_node ? std::max(node.count, 0)
                                                           : 0;
            }
        }
    }
    return static_cast<uint32_t>(std::min<int64_t>(count, playlists_max));
}

const sd_bus_vtable *playlists_table() {
    return table;
}

} // namespace vantro::mpris
