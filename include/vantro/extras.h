/**
 * Conveniences beyond the system's published interface: freeing what queries return.
 *
 * Each function frees every string of each record, then the block that holds the records; NULL
 * does nothing. Records of the library's own, such as those of an event, are not to be freed.
 * No function here blocks, fails, or changes errno; any thread may call any of them.
 */
#ifndef VANTRO_EXTRAS_H
#define VANTRO_EXTRAS_H

#include <vantro/export.h>
#include <vantro/player.h>
#include <vantro/records.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Frees a block of `count` media sources. A count below 0 counts as 0. */
VANTRO_API void vantro_free_media_sources(MediaSource *records, int count);

/** Frees a block of `count` media nodes. A count below 0 counts as 0. */
VANTRO_API void vantro_free_media_nodes(MediaNode *records, int count);

/** Frees a block of `count` metadata records. A count below 0 counts as 0. */
VANTRO_API void vantro_free_metadata(Metadata *records, int count);

/** Frees what vantro_get_current_track_info() returned, its node and metadata included. */
VANTRO_API void vantro_free_track_info(VantroTrackInfo *info);

#ifdef __cplusplus
}
#endif

#endif
