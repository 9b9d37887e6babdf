/**
 * @file
 * What a player is doing, all of it in one exchange, and its volume. Extensions of vantrod's: a
 * service that does not know them refuses them (VANTRO_FAILURE_REFUSED, `number` ENOSYS). Any
 * thread may make these calls; see extras.h for the rest.
 */
#ifndef VANTRO_STATUS_H
#define VANTRO_STATUS_H

#include <stdint.h>

#include <vantro/export.h>
#include <vantro/player.h>
#include <vantro/records.h>

#ifdef __cplusplus
extern "C" {
#endif

/** How loud a player plays. 8 bytes, exactly as the service sent them. */
typedef struct VantroVolume {
    int32_t level; /**< 0 to 100; 100, as at first, changes nothing of the music. */
    int32_t muted; /**< 1 if nothing is heard, whatever the level; else 0. */
} VantroVolume;

/**
 * Asks how loud the player plays. Needs an open player. Blocks until the service answers.
 * @param handle with an open player.
 * @param volume receives the answer; untouched on failure.
 * @return 0, or -1: bad handle, failed exchange, refusal.
 */
VANTRO_API int vantro_get_volume(VantroHandle *handle, VantroVolume *volume);

/**
 * Sets the level, and leaves muting as it is; muting leaves the level. Once either was set, the
 * object "volume" has both: vantro_event_get() gives each change as a VANTRO_EVENT_NONE with that
 * name, whose dictionary has "level" and "muted" ("true" or "false"). Needs an open player. Blocks
 * until the service has done it.
 * @param handle with an open player.
 * @param level 0 to 100; passed on as it is: the service refuses any other, and may set less.
 * @return 0, or -1: bad handle, failed exchange, refusal. Nothing has changed then.
 */
VANTRO_API int vantro_set_volume(VantroHandle *handle, int32_t level);

/**
 * Mutes the player, or unmutes it.
 * @param handle with an open player.
 * @param muted 0 or 1; passed on as it is: the service refuses what is neither.
 * @return as vantro_set_volume().
 */
VANTRO_API int vantro_set_muted(VantroHandle *handle, int32_t muted);

/** All that a line of status shows, as it was at one moment. */
typedef struct VantroStatus {
    VantroStateInfo state;           /**< State, rate and modes. */
    VantroTrksessionInfo trksession; /**< Its `type` is VANTRO_TRKSESSION_NONE if there is none. */
    VantroVolume volume;             /**< How loud it plays. */
    int32_t position;      /**< Milliseconds from the start of the track; 0 without a session. */
    int32_t index;         /**< The current track's place in the session, from 0; -1 without one. */
    MediaNode *media_node; /**< The current track, or NULL: no session, or the track has left the
                                catalogue. */
    Metadata *metadata;    /**< What is known of the current track, or NULL as `media_node`. */
} VantroStatus;

/**
 * Asks for all of it in one exchange. Four queries, one for each part, give the same, but a track
 * may begin between two of them. Needs an open player. Blocks until the service answers.
 *
 *     #include <stdio.h>
 *     #include <vantro/status.h>
 *
 *     int print_status(VantroHandle *player) {
 *         VantroStatus *status = NULL;
 *         if (vantro_get_status(player, &status) != 0) {
 *             return -1;
 *         }
 *         printf("%s at %d ms, volume %d\n",
 *                status->media_node ? status->media_node->name : "nothing", (int)status->position,
 *                (int)status->volume.level);
 *         vantro_free_status(status);
 *         return 0;
 *     }
 *
 * @param handle with an open player.
 * @param status receives a new record, for vantro_free_status(); untouched on failure.
 * @return 0, or -1: bad handle, failed exchange, refusal, malformed answer, no memory.
 */
VANTRO_API int vantro_get_status(VantroHandle *handle, VantroStatus **status);

/**
 * Frees what vantro_get_status() returned, its node and metadata included. NULL does nothing. Does
 * not block or fail, keeps errno.
 * @param status the record, or NULL.
 */
VANTRO_API void vantro_free_status(VantroStatus *status);

#ifdef __cplusplus
}
#endif

#endif
