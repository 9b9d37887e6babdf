// Writing JSON objects, and the objects that several outputs share.
#ifndef VANTRO_TOOLS_VANTROCTL_OUTPUT_JSON_OBJECT_H
#define VANTRO_TOOLS_VANTROCTL_OUTPUT_JSON_OBJECT_H

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "tools/vantroctl/model/nodes.h"
#include "tools/vantroctl/model/player_status.h"
#include "tools/vantroctl/output/status_view.h"
#include "tools/vantroctl/text/display_text.h"

namespace vantro::ctl {

// The constructor opens the object; keys and values alternate. Bytes that are not UTF-8 become
// U+FFFD, and characters that a terminal could obey are escaped.
class JsonObject {
  public:
    JsonObject() : writer_(buffer_) { writer_.StartObject(); }

    // For a run that succeeded, or a line of its output.
    JsonObject(const std::string &player, const std::string &command) : JsonObject() {
        key("ok").boolean(true);
        key("player").text(player);
        key("command").text(command);
    }

    JsonObject &key(const std::string &name) {
        const std::string valid = valid_text(name);
        writer_.Key(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
        return *this;
    }
    JsonObject &boolean(bool value) {
        writer_.Bool(value);
        return *this;
    }
    JsonObject &number(int64_t value) {
        writer_.Int64(value);
        return *this;
    }
    // The shortest text of the number; null if it is not finite, which JSON cannot write.
    JsonObject &rate(float value) {
        if (std::isfinite(value)) {
            const std::string text = rate_text(value);
            writer_.RawValue(text.data(), text.size(), rapidjson::kNumberType);
        } else {
            writer_.Null();
        }
        return *this;
    }
    JsonObject &text(const std::string &value) {
        const std::string valid = valid_text(value);
        writer_.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
        return *this;
    }
    JsonObject &known_text(const std::string &value) {
        return value.empty() ? null() : text(value);
    }
    JsonObject &null() {
        writer_.Null();
        return *this;
    }
    JsonObject &begin() {
        writer_.StartObject();
        return *this;
    }
    JsonObject &end() {
        writer_.EndObject();
        return *this;
    }

    // A member that is a list of objects: `add` is called inside a new object for each item.
    template <class Items, class Add>
    JsonObject &objects(const char *name, const Items &items, Add add) {
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
    JsonObject &numbers(const char *name, const std::vector<uint32_t> &values) {
        writer_.Key(name);
        writer_.StartArray();
        for (const uint32_t value : values) {
            number(value);
        }
        writer_.EndArray();
        return *this;
    }
    JsonObject &texts(const char *name, const std::vector<std::string> &values) {
        writer_.Key(name);
        writer_.StartArray();
        for (const std::string &value : values) {
            text(value);
        }
        writer_.EndArray();
        return *this;
    }

    // Closes the object. @return the object as a line. Call it once.
    std::string line() {
        writer_.EndObject();
        return escape_unsafe({buffer_.GetString(), buffer_.GetSize()}) + '\n';
    }

  private:
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_;
};

// Adds members to the object that a key was just given for, or to the open one.
void add_modes(JsonObject &object, const PlayerModes &modes);
void add_track(JsonObject &object, const std::optional<TrackStatus> &track);
void add_session(JsonObject &object, const std::optional<SessionStatus> &session);
void add_source(JsonObject &object, const Source &source);

} // namespace vantro::ctl

#endif
