#include "tools/vantroctl/watch/event_json.h"

#include "tools/vantroctl/output/json_object.h"
#include "tools/vantroctl/output/node_view.h"
#include "tools/vantroctl/text/time_text.h"
#include "tools/vantroctl/watch/event_view.h"

namespace vantro::ctl {
namespace {

void add_details(JsonObject &object, const PlayerEvent &event) {
    switch (event.kind) {
    case PlayerEvent::Kind::state:
        add_modes(object, event.modes);
        object.key("previous");
        if (event.initial) {
            object.null();
        } else {
            object.begin();
            add_modes(object, event.previous);
            object.end();
        }
        break;
    case PlayerEvent::Kind::session:
        object.key("session");
        add_session(object, event.session);
        break;
    case PlayerEvent::Kind::track:
        object.key("track");
        add_track(object, event.track);
        break;
    case PlayerEvent::Kind::position:
        object.key("position_ms").number(event.position_ms);
        break;
    case PlayerEvent::Kind::source:
        object.key("source").begin();
        add_source(object, event.source);
        object.end();
        object.key("gone").boolean(event.source_gone);
        break;
    case PlayerEvent::Kind::error:
        object.key("error_code").number(event.code);
        object.key("error_name").text(error_name(event.code));
        add_modes(object, event.modes);
        break;
    case PlayerEvent::Kind::object:
        object.key("object").text(event.object);
        object.key("attributes").begin();
        for (const auto &[name, value] : event.attributes) {
            object.key(name).text(value);
        }
        object.end();
        break;
    case PlayerEvent::Kind::waiting:
        object.key("reason").text(event.reason);
        break;
    case PlayerEvent::Kind::gone:
    case PlayerEvent::Kind::back:
        break;
    }
}

} // namespace

std::string json_event(const PlayerEvent &event) {
    JsonObject object(event.player, "watch");
    object.key("event").text(event_name(event.kind));
    object.key("time").text(date_time_text(event.time));
    object.key("initial").boolean(event.initial);
    add_details(object, event);
    return object.line();
}

} // namespace vantro::ctl
