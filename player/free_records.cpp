// Freeing the results of queries.
#include <vantro/extras.h>

#include "player/handle.h"
#include "records/fields.h"

using vantro::player::KeepErrno;
using vantro::records::free_records;

namespace {

template <class Record>
void free_all(Record *records) {
    const KeepErrno keep;
    free_records(records, records ? vantro::records::count_records(records) : 0);
}

} // namespace

void vantro_free_all_media_sources(MediaSource *records) {
    free_all(records);
}

void vantro_free_all_media_nodes(MediaNode *records) {
    free_all(records);
}

void vantro_free_all_metadata(Metadata *records) {
    free_all(records);
}

void vantro_free_media_sources(MediaSource *records, int count) {
    const KeepErrno keep;
    free_records(records, count);
}

void vantro_free_media_nodes(MediaNode *records, int count) {
    const KeepErrno keep;
    free_records(records, count);
}

void vantro_free_metadata(Metadata *records, int count) {
    const KeepErrno keep;
    free_records(records, count);
}

void vantro_free_track_info(VantroTrackInfo *info) {
    if (!info) {
        return;
    }
    const KeepErrno keep;
    free_records(info->media_node, 1);
    free_records(info->metadata, 1);
    std::free(info);
}

void vantro_free_status(VantroStatus *status) {
    if (!status) {
        return;
    }
    const KeepErrno keep;
    free_records(status->media_node, 1);
    free_records(status->metadata, 1);
    std::free(status);
}
