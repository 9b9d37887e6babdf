// Fills in the details of events: numbers from attributes, records from attributes that are JSON
// texts.
#include "events/details.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <vantro/platform/json.h>

#include "events/attribute_parsing.h"
#include "events/log.h"

namespace vantro::events {

namespace {

// On hosts with 32-bit pointers the record has six words, according to its public layout.
static_assert(sizeof(void *) != 4 || sizeof(VantroEventDetails) == 24);
static_assert(sizeof(void *) != 4 || offsetof(VantroEventDetails, track.metadata) == 20);

// Bytes of a record's text, with its NUL, at most.
constexpr size_t json_size = 2048;

struct EventType {
    int32_t type;
    char name[12]; // The beginning of the object's name.
};

constexpr EventType evtypes[] = {
    {VANTRO_EVENT_STATUS, "status"},
    {VANTRO_EVENT_TRACK, "track"},
    {VANTRO_EVENT_TRKSESSION, "trksession"},
    {VANTRO_EVENT_MEDIASOURCE, "mediasource"},
    {VANTRO_EVENT_NONE, ""},
};

// Members of a JSON text, and the fields that receive them.
template <class Record>
struct Text {
    const char *name;
    char *Record::*field; // NULL if the member is missing.
};
template <class Record>
struct Number {
    const char *name;
    int32_t Record::*field;
    int32_t missing;
};
template <class Record>
struct WideNumber {
    const char *name;
    uint64_t Record::*field; // 0 if the member is missing.
};

// How a record is decoded, and the log lines if that fails. The texts keep their spelling, since
// readers of the log know them.
template <class Record>
struct Form;

template <>
struct Form<MediaSource> {
    static constexpr auto trace = "fill_mediasource";
    static constexpr auto attribute = "media_source";
    static constexpr auto bad_json = "Unable to decoder a media source object";
    static constexpr auto no_memory = "No memory for media surce object";
    static constexpr std::array texts{
        Text<MediaSource>{"name", &MediaSource::name},
        Text<MediaSource>{"view_name", &MediaSource::view_name},
        Text<MediaSource>{"uid", &MediaSource::uid},
    };
    static constexpr std::array numbers{
        Number<MediaSource>{"id", &MediaSource::id, -1},
        Number<MediaSource>{"type", &MediaSource::type, 1},
        Number<MediaSource>{"status", &MediaSource::status, 0},
    };
    static constexpr std::array wide_numbers{
        WideNumber<MediaSource>{"capabilities", &MediaSource::capabilities},
    };
};

template <>
struct Form<Metadata> {
    static constexpr auto trace = "fill_metadata";
    static constexpr auto attribute = "metadata";
    static constexpr auto bad_json = "Unable to decoder a metadata object";
    static constexpr auto no_memory = "No memory for metadata object";
    static constexpr std::array texts{
        Text<Metadata>{"title", &Metadata::title},
        Text<Metadata>{"artwork", &Metadata::artwork},
        Text<Metadata>{"artist", &Metadata::artist},
        Text<Metadata>{"album", &Metadata::album},
        Text<Metadata>{"genre", &Metadata::genre},
        Text<Metadata>{"year", &Metadata::year},
        Text<Metadata>{"reserved", &Metadata::reserved},
    };
    static constexpr std::array numbers{
        Number<Metadata>{"duration", &Metadata::duration, 0},
        Number<Metadata>{"width", &Metadata::width, -1},
        Number<Metadata>{"height", &Metadata::height, -1},
        Number<Metadata>{"disc", &Metadata::disc, -1},
        Number<Metadata>{"track", &Metadata::track, -1},
    };
    static constexpr std::array<WideNumber<Metadata>, 0> wide_numbers{};
};

template <>
struct Form<MediaNode> {
    static constexpr auto trace = "fill_medianode";
    static constexpr auto attribute = "media_node";
    static constexpr auto bad_json = "Unable to decoder a media node object";
    static constexpr auto no_memory = "No memory for media node object";
    static constexpr std::array texts{
        Text<MediaNode>{"name", &MediaNode::name},
        Text<MediaNode>{"id", &MediaNode::id},
    };
    static constexpr std::array numbers{
        Number<MediaNode>{"type", &MediaNode::type, 0},
        Number<MediaNode>{"count", &MediaNode::count, -1},
        Number<MediaNode>{"ms_id", &MediaNode::ms_id, -1},
        Number<MediaNode>{"ms_type", &MediaNode::ms_type, 0x100000},
    };
    static constexpr std::array<WideNumber<MediaNode>, 0> wide_numbers{};
};

int32_t fillnum(const VantroEvent &event, const char *key) {
    const char *value = mosk_dict_find_value(event.dict, key);
    return value ? integer_of(value) : 0;
}

uint64_t fill_tsid(const VantroEvent &event) {
    return static_cast<uint32_t>(fillnum(event, "tsid"));
}

// Leaves the buffer empty if the attribute is missing or too long.
void copystr(char (&buffer)[json_size], const mosk_dict *dict, const char *key) {
    *buffer = '\0';
    const char *value = mosk_dict_find_value(dict, key);
    if (!value) {
        return;
    }
    const size_t length = strnlen(value, json_size);
    if (length < json_size) {
        std::memcpy(buffer, value, length + 1);
    } else {
        msglog(LOG_SEVERITY_WARNING, "Ignoring invalid %s in state event", key);
    }
}

// Reads the members. The record's texts point into the decoder's buffer.
template <class Record>
Record members(kivo_decoder &decoder) {
    Record found{};
    for (const auto &[name, field] : Form<Record>::texts) {
        const char *text = nullptr;
        if (kivo_decoder_get_string(&decoder, name, &text) == 0) {
            found.*field = const_cast<char *>(text);
        }
    }
    for (const auto &[name, field, missing] : Form<Record>::numbers) {
        if (kivo_decoder_get_int(&decoder, name, &(found.*field)) != 0) {
            found.*field = missing;
        }
    }
    for (const auto &[name, field] : Form<Record>::wide_numbers) {
        // Some services print the number as a signed one: with bit 63 set it is then negative.
        int64_t number = 0;
        if (kivo_decoder_get_uint64(&decoder, name, &(found.*field)) != 0 &&
            kivo_decoder_get_int64(&decoder, name, &number) == 0) {
            found.*field = static_cast<uint64_t>(number);
        }
    }
    return found;
}

// Makes a record from its attribute's text. @return null if the text is missing or too long.
template <class Record>
Record *decode(const VantroEvent &event) {
    char buffer[json_size];
    copystr(buffer, event.dict, Form<Record>::attribute);
    if (!*buffer) {
        return nullptr;
    }
    msglog(LOG_SEVERITY_TRACE, "%s: %s", Form<Record>::trace, buffer);
    kivo_decoder decoder;
    if (kivo_decoder_initialize(&decoder, nullptr) != 0) {
        msglog(LOG_SEVERITY_WARNING, "Unable to create a kivo decoder");
        return nullptr;
    }
    // If the text cannot be parsed, every member is missing.
    if (kivo_decoder_parse_json_str(&decoder, buffer) != 0) {
        msglog(LOG_SEVERITY_WARNING, "%s", Form<Record>::bad_json);
    }
    kivo_decoder_push(&decoder, nullptr);
    const Record found = members<Record>(decoder);
    kivo_decoder_pop(&decoder);
    kivo_decoder_cleanup(&decoder);

    auto *record = static_cast<Record *>(std::calloc(1, sizeof(Record)));
    if (!record) {
        msglog(LOG_SEVERITY_CRITICAL, "%s", Form<Record>::no_memory);
        return nullptr;
    }
    *record = found;
    for (const auto &text : Form<Record>::texts) {
        if (found.*text.field) {
            record->*text.field = strdup(found.*text.field);
        }
    }
    return record;
}

MediaSource *fill_mediasource(const VantroEvent &event) {
    MediaSource *source = decode<MediaSource>(event);
    if (source) {
        msglog(LOG_SEVERITY_TRACE, "fill_mediasource: %d", source->id);
    }
    return source;
}

MediaNode *fill_medianode(const VantroEvent &event) {
    return decode<MediaNode>(event);
}

Metadata *fill_metadata(const VantroEvent &event) {
    return decode<Metadata>(event);
}

// Whether an event has the attributes that its type needs. If not, it gets no type.
bool carries(VantroEvent &event, std::initializer_list<const char *> attributes) {
    for (const char *attribute : attributes) {
        if (!mosk_dict_find_value(event.dict, attribute)) {
            event.type = VANTRO_EVENT_NONE;
            return false;
        }
    }
    return true;
}

void filldetails_status(VantroEvent &event) {
    msglog(LOG_SEVERITY_TRACE, "filldetails_status");
    if (carries(event, {"position"})) {
        event.details.status.position = fillnum(event, "position");
    }
}

void filldetails_track(VantroEvent &event) {
    msglog(LOG_SEVERITY_TRACE, "filldetails_track");
    if (!carries(event, {"index", "tsid", "media_node"})) {
        return;
    }
    auto &track = event.details.track;
    track.index = fillnum(event, "index");
    track.tsid = fill_tsid(event);
    track.media_node = fill_medianode(event);
    track.metadata = fill_metadata(event);
}

void filldetails_trksession(VantroEvent &event) {
    msglog(LOG_SEVERITY_TRACE, "filldetails_trksession");
    if (!carries(event, {"length", "tsid", "type"})) {
        return;
    }
    auto &trksession = event.details.trksession;
    trksession.type = fillnum(event, "type");
    trksession.length = fillnum(event, "length");
    trksession.tsid = fill_tsid(event);
}

void filldetails_mediasource(VantroEvent &event) {
    msglog(LOG_SEVERITY_TRACE, "filldetails_mediasource");
    if (!carries(event, {"type", "media_source"})) {
        return;
    }
    event.details.mediasource.type = fillnum(event, "type");
    event.details.mediasource.media_source = fill_mediasource(event);
}

} // namespace

void filldetails(VantroEvent *event) {
    msglog(LOG_SEVERITY_DEBUG, "filldetails");
    const EventType *entry = evtypes;
    while (std::strncmp(event->object_name, entry->name, std::strlen(entry->name)) != 0) {
        entry++;
    }
    event->type = entry->type;
    switch (event->type) {
    case VANTRO_EVENT_STATUS:
        return filldetails_status(*event);
    case VANTRO_EVENT_TRACK:
        return filldetails_track(*event);
    case VANTRO_EVENT_TRKSESSION:
        return filldetails_trksession(*event);
    case VANTRO_EVENT_MEDIASOURCE:
        return filldetails_mediasource(*event);
    default:
        return;
    }
}

} // namespace vantro::events
