// Freeing what queries return.
#include <vantro/extras.h>

#include "player/handle.h"
#include "records/fields.h"

void vantro_free_media_sources(MediaSource *records, int count) {
    const vantro::player::KeepErrno keep;
    vantro::records::free_records(records, count);
}

void vantro_free_media_nodes(MediaNode *records, int count) {
    const vantro::player::KeepErrno keep;
    vantro::records::free_records(records, count);
}

void vantro_free_metadata(Metadata *records, int count) {
    const vantro::player::KeepErrno keep;
    vantro::records::free_records(records, count);
}

void vantro_free_track_info(VantroTrackInfo *info) {
    if (!info) {
        return;
    }
    const vantro::player::KeepErrno keep;
    vantro::records::free_records(info->media_node, 1);
    vantro::records::free_records(info->metadata, 1);
    std::free(info);
}
