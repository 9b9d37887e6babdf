// org.mpris.MediaPlayer2.TrackList: the tracks of the player's session.
#include <algorithm>

#include "bridges/mpris/bus/interfaces.h"

namespace vantro::mpris {

namespace {

// Appends the metadata of tracks of the window; `known` has an entry for each track of the window.
int append_songs(BusPlayer &player, sd_bus_message *reply, const std::vector<TrackPlace> &places,
                 const DescribedList &known) {
    int result = sd_bus_message_open_container(reply, 'a', "a{sv}");
    for (size_t i = 0; result >= 0 && i < places.size(); ++i) {
        Song song = player.view().song; // The current track has more metadata.
        if (const std::string path = path_of(places[i]); path != song.path) {
            const auto at = static_cast<size_t>(places[i].index - player.window().first);
            song = song_of(at < known.size() ? known[at].metadata : nullptr);
            song.path = path;
        }
        result = append_metadata(reply, song);
    }
    return result >= 0 ? sd_bus_message_close_container(reply) : result;
}

// Tracks that are not in the list are left out of the answer.
int get_tracks_metadata(BusPlayer &player, sd_bus_message *call, sd_bus_error *error) {
    int result = sd_bus_message_enter_container(call, 'a', "o");
    std::vector<TrackPlace> places;
    const char *path = nullptr;
    while (result >= 0 && (result = sd_bus_message_read(call, "o", &path)) > 0) {
        const auto place = track_place_of(path);
        if (place && player.window().holds(*place) && places.size() < TrackWindow::tracks_max) {
            places.push_back(*place);
        }
    }
    if (result < 0) {
        return result;
    }
    MediaNode *nodes = nullptr;
    Metadata *metadata = nullptr;
    int count = player.window().count;
    if (!places.empty() && vantro_get_trksession_tracks_metadata(
                               player.link().player().handle(), player.window().tsid,
                               player.window().first, &count, &nodes, &metadata) != 0) {
        return set_error(error, Failure::last());
    }
    const DescribedList known(nodes, metadata, nodes ? count : 0);
    sd_bus_message *reply = nullptr;
    result = sd_bus_message_new_method_return(call, &reply);
    if (result >= 0) {
        result = append_songs(player, reply, places, known);
    }
    if (result >= 0) {
        result = sd_bus_send(nullptr, reply, nullptr);
    }
    sd_bus_message_unref(reply);
    return result;
}

// If the track is not in the list, the call has no effect.
int go_to(BusPlayer &player, sd_bus_message *call, sd_bus_error *error) {
    const char *path = nullptr;
    if (const int result = sd_bus_message_read(call, "o", &path); result < 0) {
        return result;
    }
    const auto place = track_place_of(path);
    if (!place || !player.window().holds(*place)) {
        return sd_bus_reply_method_return(call, "");
    }
    return player.answer(call, player.link().player().jump(place->index), error);
}

int refuse_edit(BusPlayer &, sd_bus_message *, sd_bus_error *error) {
    return sd_bus_error_set(error, SD_BUS_ERROR_NOT_SUPPORTED,
                            "the list of tracks cannot be edited through the bus");
}

int get_tracks(BusPlayer &player, sd_bus_message *reply) {
    return append_paths(reply, track_paths(player.window()));
}

const sd_bus_vtable table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES("GetTracksMetadata", "ao", SD_BUS_PARAM(TrackIds), "aa{sv}",
                             SD_BUS_PARAM(Metadata), on_call<get_tracks_metadata>, 0),
    SD_BUS_METHOD_WITH_NAMES("AddTrack", "sob",
                             SD_BUS_PARAM(Uri) SD_BUS_PARAM(AfterTrack) SD_BUS_PARAM(SetAsCurrent),
                             "", "", on_call<refuse_edit>, 0),
    SD_BUS_METHOD_WITH_NAMES("RemoveTrack", "o", SD_BUS_PARAM(TrackId), "", "",
                             on_call<refuse_edit>, 0),
    SD_BUS_METHOD_WITH_NAMES("GoTo", "o", SD_BUS_PARAM(TrackId), "", "", on_call<go_to>, 0),
    SD_BUS_SIGNAL_WITH_NAMES("TrackListReplaced", "aoo",
                             SD_BUS_PARAM(Tracks) SD_BUS_PARAM(CurrentTrack), 0),
    SD_BUS_SIGNAL_WITH_NAMES("TrackMetadataChanged", "oa{sv}",
                             SD_BUS_PARAM(TrackId) SD_BUS_PARAM(Metadata), 0),
    SD_BUS_PROPERTY("Tracks", "ao", on_get<get_tracks>, 0,
                    SD_BUS_VTABLE_PROPERTY_EMITS_INVALIDATION),
    SD_BUS_PROPERTY("CanEditTracks", "b", on_get<get_constant<false>>, 0,
                    SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END,
};

} // namespace

std::vector<std::string> track_paths(const TrackWindow &window) {
    std::vector<std::string> paths;
    paths.reserve(static_cast<size_t>(std::max(window.count, 0)));
    for (int32_t i = 0; i < window.count; ++i) {
        paths.push_back(path_of(TrackPlace{window.tsid, window.first + i}));
    }
    return paths;
}

const sd_bus_vtable *track_list_table() {
    return table;
}

} // namespace vantro::mpris
