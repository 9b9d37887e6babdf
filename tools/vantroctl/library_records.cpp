#include "tools/vantroctl/library_records.h"

#include <algorithm>

namespace vantro {

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

} // namespace vantro
