#include "bridges/web/records_json.h"

#include <vantro/catalogue.h>

#include "bridges/web/service_call.h"

namespace vantro::web {
namespace {

const char *node_type_name(int32_t type) {
    switch (type) {
    case VANTRO_NODE_MENU:
        return "menu";
    case VANTRO_NODE_FOLDER:
        return "folder";
    case VANTRO_NODE_ARTIST:
        return "artist";
    case VANTRO_NODE_ALBUM:
        return "album";
    case VANTRO_NODE_GENRE:
        return "genre";
    case VANTRO_NODE_YEAR:
        return "year";
    case VANTRO_NODE_PLAYLIST:
        return "playlist";
    case VANTRO_NODE_SONG:
        return "song";
    default:
        return "unknown";
    }
}

const char *source_type_name(int32_t type) {
    switch (type) {
    case VANTRO_SOURCE_REMOVABLE:
        return "removable";
    case VANTRO_SOURCE_PLAYLISTS:
        return "playlists";
    default:
        return "directory";
    }
}

const char *source_status_name(int32_t status) {
    switch (status) {
    case VANTRO_SOURCE_SCANNING:
        return "scanning";
    case VANTRO_SOURCE_READY:
        return "ready";
    default:
        return "unavailable";
    }
}

void write_playback_error(JsonWriter &json, int32_t code) {
    switch (code) {
    case 0:
        json.null();
        return;
    case VANTRO_ERROR_GONE:
        return write_error(json, "gone", "A file does not exist any more.");
    case VANTRO_ERROR_UNREADABLE:
        return write_error(json, "unreadable", "A file cannot be read.");
    case VANTRO_ERROR_DAMAGED:
        return write_error(json, "damaged", "A file cannot be played.");
    case VANTRO_ERROR_OUTPUT:
        return write_error(json, "output", "The audio output cannot be used.");
    default:
        return write_error(json, "failed", "The player has failed.");
    }
}

void write_text_if_any(JsonWriter &json, const char *key, const char *value) {
    if (!text(value).empty()) {
        json.key(key).text(value);
    }
}

void write_number_if_any(JsonWriter &json, const char *key, int32_t value) {
    if (value > 0) {
        json.key(key).number(value);
    }
}

// Only the members, for an object that has others too.
void write_node_members(JsonWriter &json, const MediaNode &node, const Metadata *metadata) {
    json.key("source_id").number(node.ms_id);
    json.key("id").text(text(node.id));
    json.key("name").text(text(node.name));
    json.key("type").text(node_type_name(node.type));
    json.key("count").number(node.count);
    if (!metadata) {
        return;
    }
    write_text_if_any(json, "title", metadata->title);
    write_text_if_any(json, "artist", metadata->artist);
    write_text_if_any(json, "album", metadata->album);
    write_text_if_any(json, "genre", metadata->genre);
    write_text_if_any(json, "year", metadata->year);
    write_number_if_any(json, "disc", metadata->disc);
    write_number_if_any(json, "number", metadata->track);
    write_number_if_any(json, "duration_ms", metadata->duration);
    json.key("cover").boolean(!text(metadata->artwork).empty());
}

void write_track(JsonWriter &json, const VantroStatus &status) {
    json.key("track");
    if (!status.media_node) {
        json.null();
        return;
    }
    json.begin_object().key("index").number(status.index);
    write_node_members(json, *status.media_node, status.metadata);
    json.end_object();
}

} // namespace

const char *state_name(int32_t state) {
    switch (state) {
    case VANTRO_STATE_IDLE:
        return "idle";
    case VANTRO_STATE_PLAYING:
        return "playing";
    case VANTRO_STATE_PAUSED:
        return "paused";
    case VANTRO_STATE_STOPPED:
        return "stopped";
    default:
        return "none";
    }
}

const char *repeat_name(int32_t repeat) {
    return repeat == VANTRO_REPEAT_ALL ? "all" : repeat == VANTRO_REPEAT_ONE ? "one" : "off";
}

void write_error(JsonWriter &json, const char *code, std::string_view message) {
    json.begin_object();
    json.key("code").text(code);
    json.key("message").text(message);
    json.end_object();
}

void write_node(JsonWriter &json, const MediaNode &node, const Metadata *metadata) {
    json.begin_object();
    write_node_members(json, node, metadata);
    json.end_object();
}

void write_source(JsonWriter &json, const MediaSource &source) {
    json.begin_object();
    json.key("id").number(source.id);
    json.key("uid").text(text(source.uid));
    json.key("name").text(text(source.view_name).empty() ? text(source.name)
                                                         : text(source.view_name));
    json.key("type").text(source_type_name(source.type));
    json.key("status").text(source_status_name(source.status));
    json.end_object();
}

std::string player_state_json(const std::string &name, Player &player, int32_t error) {
    const Status now = checked(player.status());
    const VantroStateInfo &state = now->state;
    JsonWriter json;
    json.begin_object();
    json.key("player").text(name);
    json.key("available").boolean(true);
    json.key("state").text(state_name(state.state));
    json.key("rate").real(state.rate);
    json.key("repeat").text(repeat_name(state.repeat));
    json.key("shuffle").boolean(state.shuffle == VANTRO_SHUFFLE_ON);
    json.key("volume").number(now->volume.level);
    json.key("muted").boolean(now->volume.muted != 0);
    // A text: the id has 64 bits, and many JSON readers keep only 53 bits of a number.
    json.key("session").text(std::to_string(now->trksession.tsid));
    json.key("length").number(now->trksession.length);
    write_track(json, *now);
    json.key("position_ms").number(now->position);
    json.key("error");
    write_playback_error(json, error);
    return json.end_object().take();
}

std::string absent_player_json(const std::string &name, const ApiError &why) {
    JsonWriter json;
    json.begin_object();
    json.key("player").text(name);
    json.key("available").boolean(false);
    json.key("error");
    write_error(json, why.code(), why.what());
    return json.end_object().take();
}

} // namespace vantro::web
