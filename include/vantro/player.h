/**
 * @file
 * Controlling a player: connect to the player service, open one of its players, send it commands,
 * query its state, and find music in the service's catalogue.
 *
 *     #include <stdio.h>
 *     #include <stdlib.h>
 *     #include <vantro/player.h>
 *
 *     int main(void) {
 *         VantroHandle *player = vantro_connect();
 *         VantroStateInfo *info = NULL;
 *         if (!player || vantro_open(player, "main") || vantro_play(player) ||
 *             vantro_get_current_state(player, &info)) {
 *             return 1;
 *         }
 *         printf("state %d at rate %g\n", (int)info->state, info->rate);
 *         free(info);
 *         return vantro_disconnect(player);
 *     }
 *
 * A program for the catalogue: the first hundred entries of a media source; "" is its top.
 *
 *     #include <stdio.h>
 *     #include <vantro/extras.h>
 *
 *     int list(VantroHandle *player, int32_t ms_id) {
 *         MediaNode *nodes = NULL;
 *         int count = 100;
 *         int i;
 *         if (vantro_browse(player, ms_id, "", 0, &count, &nodes)) {
 *             return -1;
 *         }
 *         for (i = 0; i < count; i++) {
 *             printf("%s\n", nodes[i].name ? nodes[i].name : "");
 *         }
 *         vantro_free_media_nodes(nodes, count);
 *         return 0;
 *     }
 *
 * Results. A function returns 0 on success and -1 on failure, unless its own text says otherwise.
 * The library logs the reason of a failure in the system's log (code 0x06B02710), with severity 3
 * if the service could not be reached, and 5 if an argument was wrong or the service refused. errno
 * is set only if a function's text says so; any other failure leaves errno unchanged. Four failures
 * are common to many functions:
 *  - bad handle: the handle is NULL, or has no open player although one is needed. Nothing is sent.
 *  - failed exchange: the service is gone (permanently: connect again), a signal handler
 *    interrupted the call, the process lacks descriptors or memory, or the answer was too long.
 *  - refusal: the service answered that it refuses the request, or its answer was too short.
 *  - malformed answer: the words and lengths in the service's answer contradict each other.
 *    Functions that return records log neither a malformed answer nor a lack of memory for the
 *    records.
 * If there is no memory for the handle of vantro_connect(), or for the record of a player's state,
 * the process ends with abort(); any other lack of memory fails the call. vantro_connect_timed()
 * and vantro_get_status() of extras.h never end the process. Before it logs, the library flushes
 * standard output, so that both appear in their order.
 *
 * Output parameters are valid addresses, never NULL, and written on success only, unless a
 * function's text says otherwise.
 *
 * Ownership. The caller owns the results of queries. VantroStateInfo and VantroTrksessionInfo are
 * one block, for free(); records.h describes records with strings, and extras.h has functions that
 * free them. Arguments are borrowed for the call.
 *
 * Blocking. Every function that communicates with the service, also vantro_connect(), blocks until
 * the service answers, without a time limit. extras.h has functions for time limits, and for the
 * reason of a failure.
 *
 * Signals. A signal handler installed without SA_RESTART makes a blocked call fail
 * (vantro_disconnect() continues). The service may or may not have carried out the request; the
 * handle stays usable. If an exchange of vantro_open() or vantro_close() failed, the next call of
 * either finds out which player the service has open: it sends its request even if that would
 * otherwise be unnecessary. No exchange raises SIGPIPE; flushing standard output before a log line
 * can, like any output.
 *
 * Threads. Commands and queries of one handle may run in any number of threads at the same time; of
 * a handle's queries for the current track and for the catalogue only one at a time communicates
 * with the service, and the others wait. vantro_open(), vantro_close() and vantro_disconnect() must
 * not overlap any other call on the same handle. Different handles are independent. The library
 * starts no thread, and no call is a cancellation point while it waits for the service.
 *
 * Fork. A child cannot use its parent's handles and must connect again: exchanges on the parent's
 * handles fail, and a query for the current track or the catalogue may block forever if the parent
 * was in one.
 *
 * Unloading. A library that was loaded with dlopen() may be unloaded once every handle is closed
 * and no thread is in a call. One that has made a server (messaging.h) stays.
 *
 * Units. Positions and durations are milliseconds.
 */
#ifndef VANTRO_PLAYER_H
#define VANTRO_PLAYER_H

#include <stdint.h>

#include <vantro/export.h>
#include <vantro/records.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A connection to the player service, and the player open on it. */
typedef struct VantroHandle VantroHandle;

/** The state of a player. */
enum {
    VANTRO_STATE_NONE = 0,    /**< Unknown: the player publishes no state. */
    VANTRO_STATE_IDLE = 1,    /**< Nothing to play. */
    VANTRO_STATE_PLAYING = 2, /**< Playing, at the rate in the same record. */
    VANTRO_STATE_PAUSED = 3,  /**< Paused at its position. */
    VANTRO_STATE_STOPPED = 4  /**< Stopped. */
};

/** The repeat mode of a player. */
enum {
    VANTRO_REPEAT_OFF = 0, /**< Nothing. */
    VANTRO_REPEAT_ALL = 1, /**< The track session. */
    VANTRO_REPEAT_ONE = 2  /**< The track. */
};

/** Whether a player shuffles. */
enum {
    VANTRO_SHUFFLE_OFF = 0, /**< Tracks in their order. */
    VANTRO_SHUFFLE_ON = 1   /**< Tracks in random order. */
};

/** State and modes of a player. 16 bytes, exactly as the service sent them. */
typedef struct VantroStateInfo {
    int32_t state;   /**< VANTRO_STATE_*. */
    float rate;      /**< Playback rate; 1.0 is normal speed. */
    int32_t repeat;  /**< VANTRO_REPEAT_*. */
    int32_t shuffle; /**< VANTRO_SHUFFLE_*. */
} VantroStateInfo;

/** A player's list of tracks. 16 bytes, exactly as the service sent them. */
typedef struct VantroTrksessionInfo {
    int32_t type;   /**< The service's type of the session. */
    int32_t length; /**< The number of its tracks. */
    uint64_t tsid;  /**< Its id. */
} VantroTrksessionInfo;

/** The current track of a player. */
typedef struct VantroTrackInfo {
    int32_t index;         /**< Its index within the track session. */
    uint64_t tsid;         /**< Id of that track session. */
    MediaNode *media_node; /**< The track as an entry of its source: one record, or NULL. */
    Metadata *metadata;    /**< The track's metadata: one record, or NULL. */
} VantroTrackInfo;

/* ---------------------------------------------------------------------------- the connection */

/**
 * Connects to the player service: the user's own if it runs, else the system's. Blocks until the
 * service accepts.
 * @return the handle, to be ended with vantro_disconnect(), or NULL with errno: ENOENT (no service
 *   runs, or the service does not admit this user or demands a capability that this process does
 *   not have), EPROTONOSUPPORT (service and library are of different releases, and the library does
 *   not understand the service's messages), EINTR, EMFILE, ENOMEM, or another error of connecting.
 */
VANTRO_API VantroHandle *vantro_connect(void);

/**
 * Opens a player. A handle has at most one open player. Blocks.
 * @param handle from vantro_connect().
 * @param name exact name of the player, 1 to 31 characters; copied.
 * @return 0, also if that player is open already (nothing is sent then); -1 with errno EINVAL
 *   (handle NULL, name NULL or empty) or ENAMETOOLONG (name above 31 characters); or -1 with errno
 *   unchanged: another player is open (it stays open), lack of memory (nothing is sent), failed
 *   exchange, refusal (no player of that name). After a failed exchange the handle has no open
 *   player, and vantro_close() with the same name closes it in the service too. If another player's
 *   opening or closing failed in its exchange before, that player is closed first.
 */
VANTRO_API int vantro_open(VantroHandle *handle, const char *name);

/**
 * Closes the open player, and with it the handle's events. Blocks.
 * @param handle from vantro_connect().
 * @param name name of the open player.
 * @return 0, or -1: handle NULL, no player open, another one open, name NULL or empty (the handle
 *   does not change); failed exchange, or refusal (the player stays open; the handle's events are
 *   gone). After a failed exchange the call can be repeated: if the service then refuses because it
 *   had closed the player already, the call returns 0.
 */
VANTRO_API int vantro_close(VantroHandle *handle, const char *name);

/**
 * Closes the player, if one is open, and the connection, and frees the handle, whether or not the
 * service answers. Blocks for the closing.
 * @param handle from vantro_connect(); no longer valid afterwards.
 * @return 0, or -1 if handle is NULL.
 */
VANTRO_API int vantro_disconnect(VantroHandle *handle);

/**
 * @name Commands
 * Each command needs an open player and blocks until the service has carried it out.
 * Each returns 0, or -1: bad handle, failed exchange, refusal, or a mode out of range (nothing is
 * sent then). The handle is never changed.
 * @{
 */

/**
 * Plays, or continues after a pause.
 * @param handle with an open player, as for every command.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_play(VantroHandle *handle);

/**
 * Stops.
 * @param handle with an open player.
 * @return as vantro_play().
 */
VANTRO_API int vantro_stop(VantroHandle *handle);

/**
 * Pauses at the present position.
 * @param handle with an open player.
 * @return as vantro_play().
 */
VANTRO_API int vantro_pause(VantroHandle *handle);

/**
 * Goes to the next track of the track session.
 * @param handle with an open player.
 * @return as vantro_play().
 */
VANTRO_API int vantro_next(VantroHandle *handle);

/**
 * Goes to the previous track of the track session.
 * @param handle with an open player.
 * @return as vantro_play().
 */
VANTRO_API int vantro_previous(VantroHandle *handle);

/**
 * Moves within the track.
 * @param handle with an open player.
 * @param position milliseconds from the track's start. Sent unchanged; the service decides about
 *                 values outside the track.
 * @return as vantro_play().
 */
VANTRO_API int vantro_seek(VantroHandle *handle, int32_t position);

/**
 * Sets the playback rate.
 * @param handle with an open player.
 * @param rate 1.0 is normal speed. Sent unchanged; the service decides (vantrod: above 0, up to
 *   16).
 * @return as vantro_play().
 */
VANTRO_API int vantro_set_playback_rate(VantroHandle *handle, float rate);

/**
 * Turns shuffling on or off.
 * @param handle with an open player.
 * @param mode VANTRO_SHUFFLE_*.
 * @return as vantro_play().
 */
VANTRO_API int vantro_shuffle(VantroHandle *handle, int32_t mode);

/**
 * Sets the repeat mode.
 * @param handle with an open player.
 * @param mode VANTRO_REPEAT_*.
 * @return as vantro_play().
 */
VANTRO_API int vantro_repeat(VantroHandle *handle, int32_t mode);

/** @} */

/**
 * @name Track sessions
 * A track session is a player's list of tracks. Each call needs an open player and blocks until the
 * service has carried it out. Each returns 0, or -1: bad handle, failed exchange, refusal.
 * @{
 */

/**
 * Makes a track session of a node: a song, or all songs below it.
 * @param handle  with an open player.
 * @param ms_id   `id` of the media source that holds the node.
 * @param node_id `id` of the node. NULL fails, and nothing is sent; the service decides about "".
 * @param first   address of the first of two values whose meaning the service defines; NULL stands
 *                for a value of 0. catalogue.h documents both for vantrod.
 * @param second  the second value.
 * @param tsid    receives the new session's id. Untouched on failure.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_create_trksession(VantroHandle *handle, int32_t ms_id, const char *node_id,
                                        const int32_t *first, int32_t second, uint64_t *tsid);

/**
 * Destroys a track session.
 * @param handle with an open player.
 * @param tsid its id.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_destroy_trksession(VantroHandle *handle, uint64_t tsid);

/**
 * Goes to a track of the current track session.
 * @param handle with an open player.
 * @param index 0 for the first. Sent unchanged; the service decides about values outside the
 *              session.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_jump(VantroHandle *handle, int32_t index);

/** @} */

/**
 * @name Queries
 * Queries need a connected handle; without an open player the service decides about the answer.
 * Each blocks until the service answers. Each returns 0, or -1: handle NULL, failed exchange,
 * refusal.
 * @{
 */

/**
 * Queries the player's state and modes.
 * @param handle from vantro_connect().
 * @param info receives a new record, for free(). Untouched on failure.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_current_state(VantroHandle *handle, VantroStateInfo **info);

/**
 * Queries the current track session.
 * @param handle from vantro_connect().
 * @param info receives a new record, for free(). Untouched on failure.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_current_trksession_info(VantroHandle *handle,
                                                  VantroTrksessionInfo **info);

/**
 * Queries the current track. Needs about 66 KiB of the calling thread's stack. Also fails if node
 * and metadata together take more than 65536 bytes in their packed form.
 * @param handle from vantro_connect().
 * @param info receives a new record, for vantro_free_track_info(); or free its node and metadata as
 *             records.h says, then the record. Set it to NULL before the call: most failures leave
 *             it untouched, but if the service's answer is malformed, or memory for its strings is
 *             short, it receives the part that was read, which must be freed in the same way, and
 *             the call returns -1.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_current_track_info(VantroHandle *handle, VantroTrackInfo **info);

/**
 * Asks for the position within the current track.
 * @param handle from vantro_connect().
 * @param position receives milliseconds from the track's start. Untouched on failure.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_current_track_position(VantroHandle *handle, int32_t *position);

/** @} */

/**
 * @name The catalogue
 * A service's catalogue is made of media sources, and each source of nodes. What their integers,
 * ids and keys mean is the service's business, and the library passes them on as they are;
 * catalogue.h has the meanings that vantrod gives them.
 *
 * Each query blocks until the service answers. Where more than 65536 bytes of records or values
 * come back, they are fetched in a second exchange, up to 256 MiB, but for the two queries whose
 * texts say that they fail.
 * Each returns 0, or -1: bad handle, failed exchange, refusal, malformed answer, no memory, and
 *   what a query's own text adds.
 *
 * Lists. `count` receives the number of records, on success only, and the pointer a new block of
 * them, for vantro_free_media_sources() or vantro_free_media_nodes() of extras.h, or as records.h
 * says. Set the pointer to NULL before the call: it is untouched if there are no records, and on
 * failure, except that it receives NULL if memory for the records is short.
 *
 * Ranges. `offset` is the index of the first entry, from 0, and `*count` is the requested number of
 * entries. The service decides about other values; in vantrod a count of 0 or less means all
 * entries.
 * @{
 */

/**
 * Lists the media sources. Needs an open player, and about 66 KiB of the calling thread's stack.
 * Fails if the sources take more than 65536 bytes in their packed form.
 * @param handle with an open player.
 * @param sources, count receive the sources and their number: see Lists.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_media_sources(VantroHandle *handle, MediaSource **sources, int *count);

/**
 * Lists the entries of a node. Needs an open player.
 * @param handle  with an open player.
 * @param offset, count, nodes the range wanted, and what receives the entries: see Ranges and
 * Lists.
 * @param ms_id   `id` of the media source that holds the node.
 * @param node_id `id` of the node; "" is VANTRO_NODE_ROOT. NULL fails with errno EINVAL, and
 *                nothing is sent.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_browse(VantroHandle *handle, int32_t ms_id, const char *node_id,
                             int32_t offset, int *count, MediaNode **nodes);

/**
 * Lists the entries of a media source that match a term. Needs an open player.
 * @param handle with an open player.
 * @param offset, count, nodes the range wanted, and what receives the entries: see Ranges and
 * Lists.
 * @param ms_id  `id` of the media source.
 * @param filter kind of match, VANTRO_FILTER_* of catalogue.h; NULL or "" for any.
 * @param term   the search term. "" finds nothing: the call succeeds with a count of 0. NULL fails
 *               with errno EINVAL. In both cases nothing is sent.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_search(VantroHandle *handle, int32_t ms_id, const char *filter,
                             const char *term, int32_t offset, int *count, MediaNode **nodes);

/**
 * Lists the tracks of a track session. Needs a connected handle; without an open player the service
 * decides about the answer.
 * @param handle from vantro_connect().
 * @param offset, count, tracks the range wanted, and what receives the tracks: see Ranges and
 * Lists.
 * @param tsid the session's id.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_trksession_tracks(VantroHandle *handle, uint64_t tsid, int32_t offset,
                                            int *count, MediaNode **tracks);

/**
 * Queries the metadata of a node. Needs an open player, and about 66 KiB of the calling thread's
 * stack. Fails if the metadata take more than 65536 bytes in their packed form.
 * @param handle   with an open player.
 * @param ms_id    `id` of the media source that holds the node.
 * @param node_id  `id` of the node. NULL or "" fails; nothing is sent or logged.
 * @param metadata receives a new record, for vantro_free_metadata(), or NULL if the service has
 *                 none. Untouched on failure, except that it receives NULL if memory for the record
 *                 is short.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_metadata(VantroHandle *handle, int32_t ms_id, const char *node_id,
                                   Metadata **metadata);

/**
 * Queries values of a node by their keys. Needs a connected handle; without an open player the
 * service decides about the answer.
 *
 *     #include <stdio.h>
 *     #include <stdlib.h>
 *     #include <vantro/catalogue.h>
 *     #include <vantro/player.h>
 *
 *     void print_composer(VantroHandle *player, int32_t ms_id, const char *node_id) {
 *         const char *const keys[] = {VANTRO_KEY_COMPOSER, VANTRO_KEY_BIT_RATE, NULL};
 *         char *values[2];
 *         if (vantro_get_extended_metadata(player, ms_id, node_id, keys, values) == 0) {
 *             printf("%s\n", values[0] ? values[0] : "no composer");
 *             free(values[0]);
 *             free(values[1]);
 *         }
 *     }
 *
 * @param handle  from vantro_connect().
 * @param ms_id   `id` of the media source that holds the node.
 * @param node_id `id` of the node. NULL or "" fails, and nothing is sent.
 * @param keyv    keys, ended by a NULL entry, which may be the first. NULL fails, and nothing is
 *                sent. If there is no memory to send them, the call fails with errno ENOMEM.
 * @param valuev  room for one entry for each key. Each entry receives a new string, for free(), or
 *                NULL if the key has no value; nothing is written after the last entry, and nothing
 *                on failure. NULL fails, and nothing is sent.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_extended_metadata(VantroHandle *handle, int32_t ms_id,
                                            const char *node_id, const char *const *keyv,
                                            char **valuev);

/** @} */

#ifdef __cplusplus
}
#endif

/* Following the player's events. */
#include <vantro/events.h>

#endif
