#include "tools/vantroctl/output/json_object.h"

#include "tools/vantroctl/output/node_view.h"
#include "tools/vantroctl/text/node_ref.h"

namespace vantro::ctl {

void add_modes(JsonObject &object, const PlayerModes &modes) {
    object.key("state").text(state_name(modes.state));
    object.key("rate").rate(modes.rate);
    object.key("repeat").text(repeat_name(modes.repeat));
    object.key("shuffle").boolean(modes.shuffle != 0);
}

void add_track(JsonObject &object, const std::optional<TrackStatus> &known) {
    if (!known) {
        object.null();
        return;
    }
    const TrackStatus &track = *known;
    object.begin();
    object.key("index").number(track.index);
    object.key("title").known_text(track.title);
    object.key("artist").known_text(track.artist);
    object.key("album").known_text(track.album);
    object.key("genre").known_text(track.genre);
    object.key("year").known_text(track.year);
    object.key("disc").number(track.disc);
    object.key("number").number(track.number);
    object.key("duration_ms").number(track.duration_ms);
    object.key("node").known_text(track.node_id.empty() ? ""
                                                        : ref_text(track.source_id, track.node_id));
    object.key("node_id").known_text(track.node_id);
    object.key("node_name").known_text(track.node_name);
    object.key("source_id").number(track.source_id);
    object.end();
}

void add_session(JsonObject &object, const std::optional<SessionStatus> &session) {
    if (!session) {
        object.null();
        return;
    }
    object.begin();
    object.key("id").number(session->id);
    object.key("type").number(session->type);
    object.key("length").number(session->length);
    object.end();
}

void add_source(JsonObject &object, const Source &source) {
    object.key("node").text(ref_text(source.id, ""));
    object.key("id").number(source.id);
    object.key("uid").known_text(source.uid);
    object.key("name").known_text(source.name);
    object.key("type").text(source_type_name(source.type));
    object.key("status").text(source_status_name(source.status));
    object.texts("capabilities", capability_names(source.capabilities));
}

} // namespace vantro::ctl
