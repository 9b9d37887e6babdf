// Driving a player, against vantrod. Events are in event_rows.cpp.
#include <cstdlib>
#include <cstring>
#include <utility>

#include <vantro/catalogue.h>
#include <vantro/extras.h>

#include "tests/faults/rows.h"

namespace vantro::faults {

namespace {

using Handle = VantroHandle *;

std::string connect_one(Scene &scene, bool timed) {
    Handle handle =
        scene.faulted([&] { return timed ? vantro_connect_timed(10'000) : vantro_connect(); });
    std::string told = handle ? "connected" : errno != 0 ? "failed" : "failed without errno";
    const bool opens = !handle || vantro_open(handle, "main") == 0;
    vantro_disconnect(handle);
    return opens ? told : "connected, and cannot open";
}

// Opens or closes a player, and then opens it, or another, whatever the first call returned. The
// second call may fail too.
std::string open_or_close(Scene &scene, bool opens, const char *next) {
    Handle handle = vantro_connect();
    if (!opens) {
        vantro_open(handle, "main");
    }
    const int result = scene.faulted(
        [&] { return opens ? vantro_open(handle, "main") : vantro_close(handle, "main"); });
    const auto open_next = [&] { return vantro_open(handle, next); };
    bool good = true;
    if (result != 0) {
        scene.faulted(open_next);
    } else if (opens && std::strcmp(next, "main") != 0) {
        good = vantro_close(handle, "main") == 0;
    }
    good = good && open_next() == 0 && vantro_pause(handle) == 0 && vantro_close(handle, next) == 0;
    vantro_disconnect(handle);
    return !good ? "the handle does not find its way back" : result == 0 ? "done" : "failed";
}

std::string disconnect_one(Scene &scene) {
    Handle handle = vantro_connect();
    vantro_open(handle, "main");
    return scene.faulted([&] { return vantro_disconnect(handle); }) == 0 ? "done" : "not done";
}

// A command without an answer of its own.
Row command(const char *name, int (*call)(Handle)) {
    return {name, [call](Scene &scene) {
                Handle player = scene.player();
                const int result = scene.faulted([&] { return call(player); });
                return std::string(result == 0 ? "done" : result == -1 ? "failed" : "no result");
            }};
}

// Makes a session and destroys it, also one that a failed call has made.
std::string session(Scene &scene, bool making) {
    Handle spare = scene.spare();
    uint64_t tsid = UINT64_MAX;
    const auto make = [&] {
        return vantro_create_trksession(spare, 1, "songs", nullptr, VANTRO_TRKSESSION_LOAD, &tsid);
    };
    int result = making ? scene.faulted(make) : make();
    const bool wrote = tsid != UINT64_MAX;
    const bool right = wrote == (result == 0);
    if (!making) {
        result = scene.faulted([&] { return vantro_destroy_trksession(spare, tsid); });
    }
    VantroTrksessionInfo *info = nullptr;
    while (vantro_get_current_trksession_info(spare, &info) == 0 && info->tsid != 0) {
        vantro_destroy_trksession(spare, info->tsid);
        std::free(std::exchange(info, nullptr));
    }
    std::free(info);
    return !right ? "failed, and wrote" : result == 0 ? "done" : "failed";
}

// A query: if it succeeds it writes the same each time; if it fails it writes nothing.
template <typename Value>
Row query(const char *name, int (*call)(Handle, Value *), std::string (*tell)(Value),
          void (*release)(Value), Way way = Way::plain) {
    return {name,
            [=](Scene &scene) {
                Handle player = scene.player();
                Value value{};
                if (scene.faulted([&] { return call(player, &value); }) != 0) {
                    return std::string(value == Value{} ? "failed" : "failed, and wrote");
                }
                std::string told = tell(value);
                release(value);
                return told;
            },
            way};
}

template <typename Record>
void free_record(Record *record) {
    std::free(record);
}

// If memory for its strings is short a part of the record is there, to be freed all the same.
std::string get_track(Scene &scene) {
    VantroTrackInfo *info = nullptr;
    Handle player = scene.player();
    const int result = scene.faulted([&] { return vantro_get_current_track_info(player, &info); });
    const bool whole = info && info->media_node && info->metadata;
    std::string told = result != 0 ? "failed"
                       : whole     ? std::string(info->media_node->id) + info->metadata->artist
                                   : "a part";
    vantro_free_track_info(info);
    return told;
}

std::string get_status(Scene &scene) {
    VantroStatus *status = nullptr;
    Handle player = scene.player();
    if (scene.faulted([&] { return vantro_get_status(player, &status); }) != 0) {
        return status ? "failed, and wrote" : "failed";
    }
    std::string told = std::string(status->media_node->id) + status->metadata->artist;
    vantro_free_status(status);
    return told;
}

// Lists records: neither count nor block is written if it fails.
template <typename Record>
Row list(const char *name, int (*call)(Handle, int *, Record **), void (*release)(Record *, int)) {
    return {name, [=](Scene &scene) {
                Handle player = scene.player();
                Record *records = nullptr;
                int count = 0;
                if (scene.faulted([&] { return call(player, &count, &records); }) != 0) {
                    return std::string(count == 0 && !records ? "failed" : "failed, and wrote");
                }
                std::string told = std::to_string(count);
                for (int i = 0; i < count; ++i) {
                    told += records[i].name;
                }
                release(records, count);
                return told;
            }};
}

// Lists records and what is known of them: nothing is written, and nothing lost, if it fails.
Row described(const char *name, int (*call)(Handle, int *, MediaNode **, Metadata **)) {
    return {name, [=](Scene &scene) {
                Handle player = scene.player();
                MediaNode *nodes = nullptr;
                Metadata *metadata = nullptr;
                int count = 0;
                if (scene.faulted([&] { return call(player, &count, &nodes, &metadata); }) != 0) {
                    const bool wrote = count != 0 || nodes || metadata;
                    return std::string(wrote ? "failed, and wrote" : "failed");
                }
                std::string told = std::to_string(count);
                for (int i = 0; i < count; ++i) {
                    told += std::string(nodes[i].name) + std::to_string(metadata[i].duration);
                }
                vantro_free_media_nodes(nodes, count);
                vantro_free_metadata(metadata, count);
                return told;
            }};
}

std::string list_players(Scene &scene) {
    Handle player = scene.player();
    char **names = nullptr;
    const int count = scene.faulted([&] { return vantro_list_players(player, &names); });
    std::string told = count < 0 ? (names ? "failed, and wrote" : "failed") : names[count - 1];
    std::free(names);
    return told;
}

// Reads lists of songs with cursors. Nothing here may allocate: that would fail too.
std::string read_lists(Scene &scene) {
    Handle player = scene.player();
    size_t seen = 0;
    const int result = scene.faulted([&] {
        int next = vantro_version_number() < *vantro_version() ? -1 : 0;
        for (int list = 0; list < 3 && next == 0; ++list) {
            VantroCursor *const cursor =
                list == 0   ? vantro_cursor_browse(player, 1, "songs", 0, 1)
                : list == 1 ? vantro_cursor_search(player, 1, "title", "song", 0, 0)
                            : vantro_cursor_tracks(player, 1, 0, 0);
            if (!cursor) {
                return -1;
            }
            const MediaNode *node = nullptr;
            while ((next = vantro_cursor_next(cursor, &node, nullptr)) == 1) {
                seen += std::strlen(node->name);
            }
            vantro_cursor_close(cursor);
        }
        return next;
    });
    return result == 0 ? std::to_string(seen) : "failed";
}

// The id of a song.
const char *a_song(Handle player) {
    static std::string id;
    MediaNode *nodes = nullptr;
    int count = 1;
    if (id.empty() && vantro_browse(player, 1, "songs", 0, &count, &nodes) == 0) {
        id = nodes[0].id;
        vantro_free_media_nodes(nodes, count);
    }
    return id.c_str();
}

std::string get_metadata(Scene &scene) {
    Handle player = scene.player();
    const char *id = a_song(player);
    Metadata *metadata = nullptr;
    const int result = scene.faulted([&] { return vantro_get_metadata(player, 1, id, &metadata); });
    std::string told = result == 0 ? metadata->title : metadata ? "failed, wrote" : "failed";
    vantro_free_metadata(metadata, 1);
    return told;
}

std::string get_volume(Scene &scene) {
    Handle player = scene.player();
    VantroVolume volume = {-1, -1};
    const int result = scene.faulted([&] { return vantro_get_volume(player, &volume); });
    const bool wrote = volume.level != -1 || volume.muted != -1;
    return result == 0 ? std::to_string(volume.level) : wrote ? "failed, and wrote" : "failed";
}

std::string get_identity(Scene &scene) {
    Handle player = scene.player();
    VantroIdentity identity = {};
    const int result = scene.faulted([&] { return vantro_get_identity(player, &identity); });
    return result == 0 ? identity.version : identity.pid != 0 ? "failed, and wrote" : "failed";
}

std::string get_extended(Scene &scene) {
    Handle player = scene.player();
    const char *id = a_song(player);
    const char *const keys[] = {VANTRO_KEY_TITLE, VANTRO_KEY_CODEC, nullptr};
    char *values[2] = {};
    const int result =
        scene.faulted([&] { return vantro_get_extended_metadata(player, 1, id, keys, values); });
    const bool wrote = values[0] || values[1];
    const char *const title = values[0] ? values[0] : "no title";
    std::string told = result == 0 ? title : wrote ? "failed, and wrote" : "failed";
    std::free(values[0]);
    std::free(values[1]);
    return told;
}

Rows rows_of_commands() {
    return {{"vantro_connect", [](Scene &s) { return connect_one(s, false); }, Way::may_abort},
            {"vantro_connect_timed", [](Scene &s) { return connect_one(s, true); }},
            command("vantro_set_reconnect",
                    [](Handle h) { return vantro_set_reconnect(h, VANTRO_RECONNECT_OFF); }),
            command("vantro_set_timeout", [](Handle h) { return vantro_set_timeout(h, 10'000); }),
            command("vantro_last_failure",
                    [](Handle) -> int { return vantro_last_failure(nullptr) < 0; }),
            {"vantro_open", [](Scene &s) { return open_or_close(s, true, "main"); }},
            {"vantro_open another", [](Scene &s) { return open_or_close(s, true, "spare"); }},
            {"vantro_close", [](Scene &s) { return open_or_close(s, false, "main"); }},
            {"vantro_close another", [](Scene &s) { return open_or_close(s, false, "spare"); }},
            {"vantro_disconnect", disconnect_one},
            command("vantro_play", vantro_play),
            command("vantro_stop", vantro_stop),
            command("vantro_pause", vantro_pause),
            command("vantro_next", vantro_next),
            command("vantro_previous", vantro_previous),
            command("vantro_seek", [](Handle h) { return vantro_seek(h, 5); }),
            command("vantro_set_playback_rate",
                    [](Handle h) { return vantro_set_playback_rate(h, 1); }),
            command("vantro_shuffle", [](Handle h) { return vantro_shuffle(h, 0); }),
            command("vantro_repeat", [](Handle h) { return vantro_repeat(h, 0); }),
            command("vantro_set_volume", [](Handle h) { return vantro_set_volume(h, 100); }),
            command("vantro_set_muted", [](Handle h) { return vantro_set_muted(h, 0); }),
            command("vantro_rescan", vantro_rescan),
            command("vantro_rescan_node", [](Handle h) { return vantro_rescan_node(h, 1, ""); }),
            command("vantro_save_playlist",
                    [](Handle h) {
                        return vantro_save_playlist(h, "mix", VANTRO_PLAYLIST_REPLACE) > 0 ? 0 : -1;
                    }),
            command("vantro_delete_playlist",
                    [](Handle h) {
                        return vantro_save_playlist(h, "gone", VANTRO_PLAYLIST_REPLACE) > 0
                                   ? vantro_delete_playlist(h, "gone")
                                   : -1;
                    }),
            command("vantro_jump", [](Handle h) { return vantro_jump(h, 1); }),
            {"vantro_create_trksession", [](Scene &scene) { return session(scene, true); }},
            {"vantro_destroy_trksession", [](Scene &scene) { return session(scene, false); }}};
}

Rows rows_of_queries() {
    constexpr auto nodes = vantro_free_media_nodes;
    return {
        query<VantroStateInfo *>(
            "vantro_get_current_state", vantro_get_current_state,
            [](auto *info) { return std::to_string(info->rate); }, free_record, Way::may_abort),
        query<VantroTrksessionInfo *>(
            "vantro_get_current_trksession_info", vantro_get_current_trksession_info,
            [](auto *info) { return std::to_string(info->length); }, free_record, Way::may_abort),
        query<int32_t>(
            "vantro_get_current_track_position",
            [](Handle h, int32_t *position) {
                *position = 0;
                return vantro_get_current_track_position(h, position);
            },
            [](int32_t position) { return std::string(position >= 0 ? "a position" : "none"); },
            [](int32_t) {}),
        {"vantro_get_volume", get_volume},
        {"vantro_get_identity", get_identity},
        {"vantro_get_metadata", get_metadata},
        {"vantro_get_current_track_info", get_track, Way::may_abort},
        {"vantro_get_status", get_status},
        list<MediaSource>(
            "vantro_get_media_sources",
            [](Handle h, int *count, MediaSource **sources) {
                return vantro_get_media_sources(h, sources, count);
            },
            vantro_free_media_sources),
        list<MediaNode>(
            "vantro_browse",
            [](auto h, auto *n, auto **to) { return vantro_browse(h, 1, "songs", 0, n, to); },
            nodes),
        list<MediaNode>(
            "vantro_search",
            [](auto h, auto *n, auto **to) { return vantro_search(h, 1, "", "song", 0, n, to); },
            nodes),
        list<MediaNode>(
            "vantro_get_trksession_tracks",
            [](auto h, auto *n, auto **to) { return vantro_get_trksession_tracks(h, 1, 0, n, to); },
            nodes),
        described("vantro_browse_metadata",
                  [](auto h, auto *n, auto **to, auto **known) {
                      return vantro_browse_metadata(h, 1, "songs", 0, n, to, known);
                  }),
        described("vantro_search_metadata",
                  [](auto h, auto *n, auto **to, auto **known) {
                      return vantro_search_metadata(h, 1, "", "song", 0, n, to, known);
                  }),
        described("vantro_get_trksession_tracks_metadata",
                  [](auto h, auto *n, auto **to, auto **known) {
                      return vantro_get_trksession_tracks_metadata(h, 1, 0, n, to, known);
                  }),
        {"vantro_cursor_browse vantro_cursor_search vantro_cursor_tracks vantro_cursor_next "
         "vantro_cursor_close vantro_version vantro_version_number",
         read_lists},
        {"vantro_list_players", list_players},
        {"vantro_get_extended_metadata", get_extended}};
}

} // namespace

Rows player_rows() {
    Rows rows = rows_of_commands();
    const Rows queries = rows_of_queries();
    rows.insert(rows.end(), queries.begin(), queries.end());
    for (Row &row : rows) {
        // Connecting tries several places, and reports the error of the last one.
        row.tells_why = !std::string(row.name).starts_with("vantro_connect");
    }
    return rows;
}

} // namespace vantro::faults
