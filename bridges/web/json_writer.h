// Writes JSON.
#ifndef VANTRO_BRIDGES_WEB_JSON_WRITER_H
#define VANTRO_BRIDGES_WEB_JSON_WRITER_H

#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

#include <rapidjson/writer.h>

#include "bridges/web/json_memory.h"

namespace vantro::web {

// Each byte that is not UTF-8 becomes U+FFFD.
std::string valid_utf8(std::string_view text);

// Keys and values alternate within an object. @throws std::bad_alloc.
class JsonWriter {
  public:
    JsonWriter() : writer_(buffer_) {}

    JsonWriter &begin_object() {
        writer_.StartObject();
        return *this;
    }
    JsonWriter &end_object() {
        writer_.EndObject();
        return *this;
    }
    JsonWriter &begin_array() {
        writer_.StartArray();
        return *this;
    }
    JsonWriter &end_array() {
        writer_.EndArray();
        return *this;
    }
    JsonWriter &key(const char *name) {
        writer_.Key(name);
        return *this;
    }
    JsonWriter &text(std::string_view value) {
        const std::string valid = valid_utf8(value);
        writer_.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
        return *this;
    }
    JsonWriter &number(int64_t value) {
        writer_.Int64(value);
        return *this;
    }
    // Null if the value is not finite, which JSON cannot express.
    JsonWriter &real(double value) {
        if (std::isfinite(value)) {
            writer_.Double(value);
        } else {
            writer_.Null();
        }
        return *this;
    }
    JsonWriter &boolean(bool value) {
        writer_.Bool(value);
        return *this;
    }
    JsonWriter &null() {
        writer_.Null();
        return *this;
    }
    std::string take() const { return {buffer_.GetString(), buffer_.GetSize()}; }

  private:
    JsonBuffer buffer_;
    rapidjson::Writer<JsonBuffer, rapidjson::UTF8<>, rapidjson::UTF8<>, ThrowingAllocator> writer_;
};

} // namespace vantro::web

#endif
