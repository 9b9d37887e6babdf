#include "tools/vantroctl/json_text.h"

#include <cmath>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "tools/vantroctl/display_text.h"
#include "tools/vantroctl/node_ref.h"
#include "tools/vantroctl/node_view.h"

namespace vantro {
namespace {

class Object {
  public:
    Object() : writer_(buffer_) { writer_.StartObject(); }

    /** Of a run that went well. */
    Object(const std::string &player, const std::string &command) : Object() {
        key("ok").boolean(true);
        key("player").text(player);
        key("command").text(command);
    }

    Object &key(const std::string &name) {
        const std::string valid = valid_text(name);
        writer_.Key(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
        return *this;
    }
    Object &boolean(bool value) {
        writer_.Bool(value);
        return *this;
    }
    Object &number(int64_t value) {
        writer_.Int64(value);
        return *this;
    }
    /** As short as it can be said; JSON has no way to write what is not finite. */
    Object &rate(float value) {
        if (std::isfinite(value)) {
            const std::string text = rate_text(value);
            writer_.RawValue(text.data(), text.size(), rapidjson::kNumberType);
        } else {
            writer_.Null();
        }
        return *this;
    }
    Object &text(const std::string &value) {
        const std::string valid = valid_text(value);
        writer_.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
        return *this;
    }
    Object &known_text(const std::string &value) { return value.empty() ? null() : text(value); }
    Object &null() {
        writer_.Null();
        return *this;
    }
    Object &begin() {
        writer_.StartObject();
        return *this;
    }
    Object &end() {
        writer_.EndObject();
        return *this;
    }

    /** A member that is a list: `add` is called for each item, within an object of its own. */
    template <class Items, class Add>
    Object &objects(const char *name, const Items &items, Add add) {
        writer_.Key(name);
        writer_.StartArray();
        for (const auto &item : items) {
            begin();
            add(item);
            end();
        }
        writer_.EndArray();
        return *this;
    }
    Object &texts(const char *name, const std::vector<std::string> &values) {
        writer_.Key(name);
        writer_.StartArray();
        for (const std::string &value : values) {
            text(value);
        }
        writer_.EndArray();
        return *this;
    }

    std::string line() {
        writer_.EndObject();
        return std::string(buffer_.GetString(), buffer_.GetSize()) + '\n';
    }

  private:
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_;
};

void add_track(Object &object, const TrackStatus &track) {
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

void add_session(Object &object, const std::optional<SessionStatus> &session) {
    object.key("session");
    if (session) {
        object.begin();
        object.key("id").number(session->id);
        object.key("type").number(session->type);
        object.key("length").number(session->length);
        object.end();
    } else {
        object.null();
    }
}

void add_node(Object &object, const Node &node) {
    object.key("node").known_text(node_ref(node));
    object.key("source_id").number(node.source);
    object.key("id").text(node.id);
    object.key("name").known_text(node.name);
    object.key("type").text(node_type_name(node.type));
    object.key("count").number(node.count);
    if (!node.nodes.empty()) {
        object.objects("nodes", node.nodes, [&](const Node &below) { add_node(object, below); });
    }
}

} // namespace

std::string json_status(const PlayerStatus &status) {
    Object object(status.player, "status");
    object.key("state").text(state_name(status.state));
    object.key("rate").rate(status.rate);
    object.key("repeat").text(repeat_name(status.repeat));
    object.key("shuffle").boolean(status.shuffle != 0);
    object.key("position_ms").number(status.position_ms);
    object.key("track");
    if (status.track) {
        add_track(object, *status.track);
    } else {
        object.null();
    }
    add_session(object, status.session);
    return object.line();
}

std::string json_done(const std::string &player, const Done &done) {
    Object object(player, done.command);
    if (done.position_ms) {
        object.key("position_ms").number(*done.position_ms);
    }
    if (done.rate) {
        object.key("rate").rate(*done.rate);
    }
    if (done.shuffle) {
        object.key("shuffle").boolean(*done.shuffle);
    }
    if (done.repeat) {
        object.key("repeat").text(repeat_name(*done.repeat));
    }
    if (done.index) {
        object.key("index").number(*done.index);
    }
    if (done.session) {
        object.key("session_id").number(*done.session);
    }
    return object.line();
}

std::string json_sources(const std::string &player, const std::vector<Source> &sources) {
    Object object(player, "sources");
    object.objects("sources", sources, [&](const Source &source) {
        object.key("node").text(ref_text(source.id, ""));
        object.key("id").number(source.id);
        object.key("uid").known_text(source.uid);
        object.key("name").known_text(source.name);
        object.key("type").text(source_type_name(source.type));
        object.key("status").text(source_status_name(source.status));
        object.texts("capabilities", capability_names(source.capabilities));
    });
    return object.line();
}

std::string json_nodes(const std::string &player, const std::string &command,
                       const std::vector<Node> &nodes) {
    Object object(player, command);
    object.objects("nodes", nodes, [&](const Node &node) { add_node(object, node); });
    return object.line();
}

std::string json_tracks(const std::string &player, const SessionStatus &session,
                        std::optional<int32_t> current, int32_t first,
                        const std::vector<Node> &tracks) {
    Object object(player, "tracks");
    add_session(object, session);
    object.key("current");
    current ? object.number(*current) : object.null();
    object.objects("tracks", tracks, [&, index = first](const Node &track) mutable {
        object.key("index").number(index++);
        add_node(object, track);
    });
    return object.line();
}

std::string json_values(const std::string &player, const Place &place, const Values &values) {
    Object object(player, "info");
    object.key("node").text(ref_text(place.source, place.id));
    object.key("source_id").number(place.source);
    object.key("id").text(place.id);
    object.key("values").begin();
    for (const auto &[key, value] : values) {
        object.key(key);
        value ? object.text(*value) : object.null();
    }
    object.end();
    return object.line();
}

std::string json_failure(const Failure &failure) {
    Object object;
    object.key("ok").boolean(false);
    object.key("error").text(failure.text);
    object.key("code").number(static_cast<int>(failure.outcome));
    return object.line();
}

} // namespace vantro
