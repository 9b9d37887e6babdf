// Driving a player, against vantrod. Events are in event_rows.cpp.
#include <cstdlib>
#include <cstring>
#include <utility>

#include <vantro/catalogue.h>
#include <vantro/extras.h>

#include "tests/faults/rows.h"

namespace vantro::faults {

int32_t music_source = 0;
uint64_t music_session = 0;
std::string music_song;

namespace {

bool connect_one(Scene &scene) {
    VantroHandle *handle = scene.faulted([] { return vantro_connect(); });
    if (!handle) {
        scene.expect(errno != 0, "no errno");
        return false;
    }
    scene.expect(vantro_open(handle, "main") == 0, "connected, and cannot open");
    vantro_disconnect(handle);
    return true;
}

// Whether the handle has a player that answers.
bool is_open(VantroHandle *handle) {
    return vantro_pause(handle) == 0;
}

bool open_one(Scene &scene) {
    VantroHandle *handle = vantro_connect();
    const int result = scene.faulted([&] { return vantro_open(handle, "main"); });
    scene.expect(result == 0 || result == -1, "not a result");
    scene.expect(vantro_open(handle, "main") == 0, "cannot be opened again");
    scene.expect(is_open(handle), "open, and does not answer");
    vantro_disconnect(handle);
    return result == 0;
}

bool close_one(Scene &scene) {
    VantroHandle *handle = vantro_connect();
    vantro_open(handle, "main");
    const int result = scene.faulted([&] { return vantro_close(handle, "main"); });
    scene.expect(result == 0 || vantro_close(handle, "main") == 0, "cannot be closed again");
    scene.expect(vantro_open(handle, "main") == 0 && is_open(handle), "cannot be opened again");
    vantro_disconnect(handle);
    return result == 0;
}

bool disconnect_one(Scene &scene) {
    VantroHandle *handle = vantro_connect();
    vantro_open(handle, "main");
    const int result = scene.faulted([&] { return vantro_disconnect(handle); });
    scene.expect(result == 0, "fails");
    return result == 0;
}

// A command without an answer of its own.
Row command(const char *name, int (*call)(VantroHandle *)) {
    return {name, [call](Scene &scene) {
                VantroHandle *player = scene.player();
                const int result = scene.faulted([&] { return call(player); });
                scene.expect(result == 0 || result == -1, "not a result");
                return result == 0;
            }};
}

int make_session(VantroHandle *handle, uint64_t *tsid) {
    return vantro_create_trksession(handle, music_source, "songs", nullptr, VANTRO_TRKSESSION_LOAD,
                                    tsid);
}

bool session(Scene &scene, bool making) {
    VantroHandle *spare = scene.spare();
    uint64_t tsid = UINT64_MAX;
    const auto make = [&] { return make_session(spare, &tsid); };
    int result = making ? scene.faulted(make) : make();
    scene.expect((tsid != UINT64_MAX) == (result == 0), "failed, and wrote");
    if (!making) {
        result = scene.faulted([&] { return vantro_destroy_trksession(spare, tsid); });
    }
    // Whatever there is now, what a failed call has made too.
    VantroTrksessionInfo *info = nullptr;
    while (vantro_get_current_trksession_info(spare, &info) == 0 && info->tsid != 0) {
        vantro_destroy_trksession(spare, info->tsid);
        std::free(std::exchange(info, nullptr));
    }
    std::free(info);
    return result == 0;
}

// A query: what it wrote where it succeeds is right, and untouched where not.
template <typename Value, typename Call, typename Right>
bool query(Scene &scene, Value untouched, Call call, Right right, void (*release)(Value)) {
    VantroHandle *player = scene.player();
    Value value = untouched;
    const bool succeeded = scene.faulted([&] { return call(player, &value); }) == 0;
    scene.expect(succeeded ? right(value) : value == untouched, "another answer");
    if (succeeded) {
        release(value);
    }
    return succeeded;
}

template <typename Record>
Row record_row(const char *name, int (*call)(VantroHandle *, Record **),
               bool (*right)(const Record *)) {
    return {name,
            [=](Scene &scene) {
                static Record untouched;
                return query<Record *>(scene, &untouched, call, right,
                                       [](Record *record) { std::free(record); });
            },
            Way::may_abort};
}

bool get_position(Scene &scene) {
    return query<int32_t>(
        scene, -77, vantro_get_current_track_position,
        [](int32_t position) { return position >= 0; }, [](int32_t) {});
}

// Where memory for its strings is short a part of the record is there, to be freed all the same.
bool get_track(Scene &scene) {
    VantroTrackInfo *info = nullptr;
    VantroHandle *player = scene.player();
    const int result = scene.faulted([&] { return vantro_get_current_track_info(player, &info); });
    scene.expect(result != 0 || (info->media_node->name && info->metadata->title),
                 "another answer");
    vantro_free_track_info(info);
    return result == 0;
}

bool get_sources(Scene &scene) {
    VantroHandle *player = scene.player();
    MediaSource *sources = nullptr;
    int count = 77;
    const int result =
        scene.faulted([&] { return vantro_get_media_sources(player, &sources, &count); });
    scene.expect(result == 0 ? count == 1 && sources[0].id == music_source
                             : count == 77 && !sources,
                 "another answer");
    vantro_free_media_sources(sources, result == 0 ? count : 0);
    return result == 0;
}

// A listing: all songs where it succeeds, and neither count nor block where not.
using Listing = int (*)(VantroHandle *, int *, MediaNode **);
bool lists(Scene &scene, int wanted, Listing call) {
    VantroHandle *player = scene.player();
    MediaNode *nodes = nullptr;
    int count = wanted;
    if (scene.faulted([&] { return call(player, &count, &nodes); }) != 0) {
        scene.expect(count == wanted && !nodes, "failed, and wrote");
        return false;
    }
    scene.expect(count == (wanted ? wanted : songs_count) && nodes &&
                     std::strncmp(nodes[0].name, "song 0", 6) == 0,
                 "another list");
    vantro_free_media_nodes(nodes, count);
    return true;
}

int browse(VantroHandle *player, int *count, MediaNode **nodes) {
    return vantro_browse(player, music_source, "songs", 0, count, nodes);
}

int search(VantroHandle *player, int *count, MediaNode **nodes) {
    return vantro_search(player, music_source, "title", "song", 0, count, nodes);
}

int session_tracks(VantroHandle *player, int *count, MediaNode **nodes) {
    return vantro_get_trksession_tracks(player, music_session, 0, count, nodes);
}

bool get_metadata(Scene &scene) {
    return query<Metadata *>(
        scene, nullptr,
        [](VantroHandle *player, Metadata **metadata) {
            return vantro_get_metadata(player, music_source, music_song.c_str(), metadata);
        },
        [](Metadata *metadata) { return std::strncmp(metadata->title, "song 0", 6) == 0; },
        [](Metadata *metadata) { vantro_free_metadata(metadata, 1); });
}

bool get_extended(Scene &scene) {
    VantroHandle *player = scene.player();
    const char *const keys[] = {VANTRO_KEY_TITLE, VANTRO_KEY_COMPOSER, VANTRO_KEY_CODEC, nullptr};
    char untouched;
    char *values[] = {&untouched, &untouched, &untouched};
    const int result = scene.faulted([&] {
        return vantro_get_extended_metadata(player, music_source, music_song.c_str(), keys, values);
    });
    if (result != 0) {
        scene.expect(values[0] == &untouched && values[2] == &untouched, "failed, and wrote");
        return false;
    }
    scene.expect(values[0] && !values[1] && values[2] && std::strcmp(values[2], "flac") == 0,
                 "another answer");
    std::free(values[0]);
    std::free(values[2]);
    return true;
}

} // namespace

Rows player_rows() {
    return {{"vantro_connect", connect_one, Way::may_abort},
            {"vantro_open", open_one},
            {"vantro_close", close_one},
            {"vantro_disconnect", disconnect_one},
            command("vantro_play", vantro_play),
            command("vantro_stop", vantro_stop),
            command("vantro_pause", vantro_pause),
            command("vantro_next", vantro_next),
            command("vantro_previous", vantro_previous),
            command("vantro_seek", [](VantroHandle *h) { return vantro_seek(h, 5); }),
            command("vantro_set_playback_rate",
                    [](VantroHandle *h) { return vantro_set_playback_rate(h, 1); }),
            command("vantro_shuffle", [](VantroHandle *h) { return vantro_shuffle(h, 0); }),
            command("vantro_repeat", [](VantroHandle *h) { return vantro_repeat(h, 0); }),
            command("vantro_jump", [](VantroHandle *h) { return vantro_jump(h, 1); }),
            {"vantro_create_trksession", [](Scene &scene) { return session(scene, true); }},
            {"vantro_destroy_trksession", [](Scene &scene) { return session(scene, false); }},
            record_row<VantroStateInfo>(
                "vantro_get_current_state", vantro_get_current_state,
                [](const VantroStateInfo *info) { return info->state >= VANTRO_STATE_IDLE; }),
            record_row<VantroTrksessionInfo>(
                "vantro_get_current_trksession_info", vantro_get_current_trksession_info,
                [](const VantroTrksessionInfo *info) { return info->length == songs_count; }),
            {"vantro_get_current_track_info", get_track, Way::may_abort},
            {"vantro_get_current_track_position", get_position},
            {"vantro_get_media_sources", get_sources},
            {"vantro_browse", [](Scene &scene) { return lists(scene, 0, browse); }},
            {"vantro_browse page", [](Scene &scene) { return lists(scene, 2, browse); }},
            {"vantro_search", [](Scene &scene) { return lists(scene, 0, search); }},
            {"vantro_get_trksession_tracks",
             [](Scene &scene) { return lists(scene, 0, session_tracks); }},
            {"vantro_get_metadata", get_metadata},
            {"vantro_get_extended_metadata", get_extended}};
}

} // namespace vantro::faults
