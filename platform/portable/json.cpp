// The JSON decoder: the values of a text in a flat table, in the order of the text.
//
// The members of an object are the entries after its own entry, up to its `end`; the `end` of a
// nested object is used to skip that object's members. The first entries are in the decoder itself,
// so that a record of an event needs no heap memory.
#include <vantro/platform/json.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>
#include <utility>

#include <rapidjson/reader.h>

#include "platform/portable/guards.h"

using namespace vantro::platform;

namespace {

enum class Kind : uint8_t { object, array, string, integer, large_integer, too_large, other };

struct Value {
    const char *name; // null if it is not a member of an object
    union {
        const char *string;
        int64_t integer;
        uint64_t large_integer; // above INT64_MAX
    };
    uint32_t end; // index after its last member
    Kind kind;
};

constexpr size_t values_in_place = 36;
// Indices have 32 bits, and on some machines the table has to fit into less memory.
constexpr size_t values_max =
    std::min<size_t>(std::numeric_limits<uint32_t>::max(), SIZE_MAX / sizeof(Value));

struct Decoder {
    Value *values;
    size_t count;
    size_t capacity;
    uint32_t entered_count;
    std::array<uint32_t, KIVO_JSON_DEPTH_MAX> entered; // the objects pushed, as indices
    std::array<Value, values_in_place> in_place;

    static Decoder &of(struct kivo_decoder *decoder) {
        return *std::launder(reinterpret_cast<Decoder *>(decoder->opaque));
    }
    void forget() {
        if (values != in_place.data()) {
            std::free(values);
        }
        values = in_place.data();
        capacity = values_in_place;
        count = 0;
        entered_count = 0;
    }
    bool grow() {
        const size_t wanted = capacity * 2;
        if (wanted > values_max) {
            return false;
        }
        const bool moved_before = values != in_place.data();
        auto *const grown = static_cast<Value *>(
            std::realloc(moved_before ? values : nullptr, wanted * sizeof(Value)));
        if (!grown) {
            return false;
        }
        if (!moved_before) {
            std::memcpy(grown, in_place.data(), sizeof in_place);
        }
        values = grown;
        capacity = wanted;
        return true;
    }
};
static_assert(sizeof(Decoder) <= sizeof(struct kivo_decoder));
static_assert(alignof(Decoder) <= alignof(struct kivo_decoder));

// Whether a text contains half of a surrogate pair, which is not a character. The parser refuses an
// escaped high half without its low one, but turns a lone low half into three bytes.
bool has_surrogate(std::string_view text) {
    for (size_t at = 0; (at = text.find('\xed', at)) != text.npos; ++at) {
        if (at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) >= 0xa0) {
            return true;
        }
    }
    return false;
}

// Receives the parser's events; false ends the parsing.
class Collector {
  public:
    explicit Collector(Decoder &decoder) : decoder_(decoder) {}
    bool out_of_memory() const { return out_of_memory_; }

    bool Null() { return add(Kind::other); }
    bool Bool(bool) { return add(Kind::other); }
    bool Int(int value) { return integer(value); }
    bool Uint(unsigned value) { return integer(value); }
    bool Int64(int64_t value) { return integer(value); }
    bool Uint64(uint64_t value) {
        if (value <= INT64_MAX) {
            return integer(static_cast<int64_t>(value));
        }
        if (!add(Kind::large_integer)) {
            return false;
        }
        decoder_.values[decoder_.count - 1].large_integer = value;
        return true;
    }
    bool Double(double value) {
        // A whole number that 64 bits cannot hold arrives here.
        return add(std::fabs(value) >= 0x1p63 ? Kind::too_large : Kind::other);
    }
    bool RawNumber(const char *, rapidjson::SizeType, bool) { return false; }
    bool String(const char *text, rapidjson::SizeType length, bool) {
        if (has_surrogate({text, length}) ||
            !add(std::memchr(text, '\0', length) ? Kind::other : Kind::string)) {
            return false;
        }
        decoder_.values[decoder_.count - 1].string = text;
        return true;
    }
    bool Key(const char *text, rapidjson::SizeType length, bool) {
        // No C string can query a name that contains a NUL, so it is dropped.
        name_ = std::memchr(text, '\0', length) ? nullptr : text;
        return !has_surrogate({text, length});
    }
    bool StartObject() { return open(Kind::object); }
    bool EndObject(rapidjson::SizeType) { return close(); }
    bool StartArray() { return open(Kind::array); }
    bool EndArray(rapidjson::SizeType) { return close(); }

  private:
    bool add(Kind kind) {
        if (decoder_.count == decoder_.capacity && !decoder_.grow()) {
            out_of_memory_ = true;
            return false;
        }
        Value &value = decoder_.values[decoder_.count++];
        value.name = name_;
        value.kind = kind;
        value.end = static_cast<uint32_t>(decoder_.count);
        name_ = nullptr;
        return true;
    }
    bool integer(int64_t number) {
        if (!add(Kind::integer)) {
            return false;
        }
        decoder_.values[decoder_.count - 1].integer = number;
        return true;
    }
    bool open(Kind kind) {
        if (depth_ == open_.size() || !add(kind)) {
            return false;
        }
        open_[depth_++] = static_cast<uint32_t>(decoder_.count - 1);
        return true;
    }
    bool close() {
        decoder_.values[open_[--depth_]].end = static_cast<uint32_t>(decoder_.count);
        return true;
    }

    Decoder &decoder_;
    const char *name_ = nullptr;
    bool out_of_memory_ = false;
    size_t depth_ = 0;
    std::array<uint32_t, KIVO_JSON_DEPTH_MAX> open_;
};

// The first member of that name of the object entered last.
const Value *find(const Decoder &decoder, const char *name) {
    if (!name || decoder.entered_count == 0) {
        return nullptr;
    }
    const uint32_t object = decoder.entered[decoder.entered_count - 1];
    const uint32_t end = decoder.values[object].end;
    for (uint32_t i = object + 1; i < end; i = decoder.values[i].end) {
        const Value &value = decoder.values[i];
        // Comparing the first character avoids most calls.
        if (value.name && *value.name == *name && std::strcmp(value.name, name) == 0) {
            return &value;
        }
    }
    return nullptr;
}

template <typename From, typename Number>
int store(From number, Number &out) {
    if (!std::in_range<Number>(number)) {
        return fail(ERANGE);
    }
    out = static_cast<Number>(number);
    return 0;
}

template <typename Number>
int get_number(struct kivo_decoder *decoder, const char *name, Number *out) {
    if (!decoder || !out) {
        return fail(EINVAL);
    }
    const Value *const value = find(Decoder::of(decoder), name);
    if (!value) {
        return fail(ENOENT);
    }
    switch (value->kind) {
    case Kind::integer:
        return store(value->integer, *out);
    case Kind::large_integer:
        return store(value->large_integer, *out);
    case Kind::too_large:
        return fail(ERANGE);
    default:
        return fail(EINVAL);
    }
}

} // namespace

int kivo_decoder_initialize(struct kivo_decoder *decoder, char *text) {
    if (!decoder) {
        return fail(EINVAL);
    }
    auto *const made = new (decoder->opaque) Decoder;
    made->values = made->in_place.data();
    made->forget();
    if (text && kivo_decoder_parse_json_str(decoder, text) != 0) {
        return -1;
    }
    return 0;
}

int kivo_decoder_parse_json_str(struct kivo_decoder *decoder, char *text) {
    if (!decoder || !text) {
        return fail(EINVAL);
    }
    Decoder &values = Decoder::of(decoder);
    values.forget();
    Collector collector(values);
    rapidjson::Reader reader;
    rapidjson::InsituStringStream stream(text);
    if (reader.Parse<rapidjson::kParseInsituFlag>(stream, collector)) {
        return 0;
    }
    // The values before the error are dropped.
    values.forget();
    return fail(collector.out_of_memory() ? ENOMEM : EBADMSG);
}

int kivo_decoder_push(struct kivo_decoder *decoder, const char *name) {
    if (!decoder) {
        return fail(EINVAL);
    }
    Decoder &values = Decoder::of(decoder);
    const Value *object = nullptr;
    if (name) {
        object = find(values, name);
    } else if (values.entered_count == 0 && values.count > 0) {
        object = values.values;
    }
    if (!object || object->kind != Kind::object) {
        return fail(ENOENT);
    }
    // There is room: deeper texts are refused by the parser.
    values.entered[values.entered_count++] = static_cast<uint32_t>(object - values.values);
    return 0;
}

int kivo_decoder_pop(struct kivo_decoder *decoder) {
    if (!decoder) {
        return fail(EINVAL);
    }
    Decoder &values = Decoder::of(decoder);
    if (values.entered_count == 0) {
        return fail(ENOENT);
    }
    --values.entered_count;
    return 0;
}

int kivo_decoder_get_string(struct kivo_decoder *decoder, const char *name, const char **out) {
    if (!decoder || !out) {
        return fail(EINVAL);
    }
    const Value *const value = find(Decoder::of(decoder), name);
    if (!value) {
        return fail(ENOENT);
    }
    if (value->kind != Kind::string) {
        return fail(EINVAL);
    }
    *out = value->string;
    return 0;
}

int kivo_decoder_get_int(struct kivo_decoder *decoder, const char *name, int32_t *out) {
    return get_number(decoder, name, out);
}

int kivo_decoder_get_int64(struct kivo_decoder *decoder, const char *name, int64_t *out) {
    return get_number(decoder, name, out);
}

int kivo_decoder_get_uint64(struct kivo_decoder *decoder, const char *name, uint64_t *out) {
    return get_number(decoder, name, out);
}

void kivo_decoder_cleanup(struct kivo_decoder *decoder) {
    if (decoder) {
        Decoder::of(decoder).forget();
    }
}
