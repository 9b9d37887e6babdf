#include "tools/vantroctl/json_text.h"

#include <cmath>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "tools/vantroctl/display_text.h"

namespace vantro {
namespace {

class Object {
  public:
    Object() : writer_(buffer_) { writer_.StartObject(); }

    Object &key(const char *name) {
        writer_.Key(name);
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
    object.key("node_id").known_text(track.node_id);
    object.key("node_name").known_text(track.node_name);
    object.key("source_id").number(track.source_id);
    object.end();
}

} // namespace

std::string json_status(const PlayerStatus &status) {
    Object object;
    object.key("ok").boolean(true);
    object.key("player").text(status.player);
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
    object.key("session");
    if (status.session) {
        object.begin();
        object.key("id").number(status.session->id);
        object.key("type").number(status.session->type);
        object.key("length").number(status.session->length);
        object.end();
    } else {
        object.null();
    }
    return object.line();
}

std::string json_done(const std::string &player, const Done &done) {
    Object object;
    object.key("ok").boolean(true);
    object.key("player").text(player);
    object.key("command").text(done.command);
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
