#include "tools/vantroctl/service/library_records.h"

#include <algorithm>
#include <string_view>

#include <vantro/catalogue.h>

namespace vantro::ctl {
namespace {

// A change of an object without a kind.
void set_object(PlayerEvent &event, const VantroEvent &record) {
    event.kind = PlayerEvent::Kind::object;
    event.object = record.object_name;
    const char *name = nullptr;
    const char *value = nullptr;
    for (size_t i = 0; mosk_dict_entry(record.dict, i, &name, &value) == 0; ++i) {
        event.attributes.emplace_back(name, value);
    }
}

} // namespace

TrackStatus track_of(int32_t index, const MediaNode *node, const Metadata *metadata) {
    TrackStatus track;
    track.index = index;
    if (node) {
        track.node_id = text_of(node->id);
        track.node_name = text_of(node->name);
        track.source_id = node->ms_id;
    }
    if (metadata) {
        track.title = text_of(metadata->title);
        track.artist = text_of(metadata->artist);
        track.album = text_of(metadata->album);
        track.genre = text_of(metadata->genre);
        track.year = text_of(metadata->year);
        track.disc = std::max(metadata->disc, 0);
        track.number = std::max(metadata->track, 0);
        track.duration_ms = std::max(metadata->duration, 0);
    }
    if (track.title.empty()) {
        track.title = track.node_name;
    }
    return track;
}

Source source_of(const MediaSource &record) {
    return Source{record.id,
                  text_of(record.uid),
                  text_of(record.view_name ? record.view_name : record.name),
                  record.type,
                  record.status,
                  record.capabilities};
}

std::optional<PlayerEvent> player_event_of(const VantroEvent &record) {
    if (!record.object_name) {
        return std::nullopt;
    }
    const VantroEventDetails &details = record.details;
    PlayerEvent event;
    event.modes = {record.state, record.rate, record.repeat, record.shuffle};
    event.previous = event.modes;
    switch (record.type) {
    case VANTRO_EVENT_STATE:
        event.kind = PlayerEvent::Kind::state;
        event.previous = {details.state.state, details.state.rate, details.state.repeat,
                          details.state.shuffle};
        break;
    case VANTRO_EVENT_ERROR:
        event.kind = PlayerEvent::Kind::error;
        event.code = details.error.code;
        break;
    case VANTRO_EVENT_TRKSESSION:
        event.kind = PlayerEvent::Kind::session;
        if (details.trksession.type != VANTRO_TRKSESSION_NONE) {
            event.session = SessionStatus{static_cast<int64_t>(details.trksession.tsid),
                                          details.trksession.type, details.trksession.length};
        }
        break;
    case VANTRO_EVENT_TRACK:
        event.kind = PlayerEvent::Kind::track;
        event.track =
            track_of(details.track.index, details.track.media_node, details.track.metadata);
        break;
    case VANTRO_EVENT_STATUS:
        event.kind = PlayerEvent::Kind::position;
        event.position_ms = details.status.position;
        break;
    case VANTRO_EVENT_MEDIASOURCE:
        if (details.mediasource.media_source) {
            event.kind = PlayerEvent::Kind::source;
            event.source = source_of(*details.mediasource.media_source);
            event.source_gone = details.mediasource.type == VANTRO_SOURCE_GONE;
            break;
        }
        [[fallthrough]];
    default:
        if (std::string_view(record.object_name) == "state") {
            event.kind = PlayerEvent::Kind::state;
        } else {
            set_object(event, record);
        }
    }
    return event;
}

} // namespace vantro::ctl
