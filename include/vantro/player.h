/**
 * @file
 * Driving a player: connect to the player service, open one of its players, tell it what to do,
 * ask what it is doing, and find in its catalogue what it shall play.
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
 * And its catalogue: the first hundred entries of a media source, "" being its top.
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
 * Why it failed is logged: the library writes to the system's log (code 0x06B02710), severity 3
 * if the service could not be reached, 5 if an argument was wrong or the service refused.
 * errno is set only where a function's text says so; any other failure leaves it as it was. Four
 * failures are common to many functions:
 *  - bad handle: NULL, or no player is open although one is needed. Nothing is sent.
 *  - failed exchange: the service is gone (for good: connect again), a signal handler interrupted
 *    the call, the process is short of descriptors or memory, or the answer was longer than it may
 *    be.
 *  - refusal: the service answered that it did not do it, or answered too little.
 *  - malformed answer: the service's words and lengths contradict each other. Where records are
 *    returned neither this nor want of memory for them is logged.
 * If there is no memory for a handle, or for the record of what a player is doing, the process
 * ends with abort(); any other want of memory fails the call. Before it logs, the library flushes
 * standard output, so that both appear in their order.
 *
 * Output parameters are valid addresses, never NULL, and written on success only, unless a
 * function's text says otherwise.
 *
 * Ownership. What a query returns belongs to the caller. VantroStateInfo and VantroTrksessionInfo
 * are one block, for free(); records with strings are described in records.h, and extras.h has
 * functions that free them. Arguments are borrowed for the call.
 *
 * Blocking. Every function that talks to the service blocks until it answers, without a time
 * limit. vantro_connect() does too. extras.h has limits, and tells why a call failed.
 *
 * Signals. A handler installed without SA_RESTART fails a blocked call (vantro_disconnect() goes
 * on). The service may or may not have done what it was told; the handle stays usable. Where an
 * exchange of vantro_open() or vantro_close() failed, the next call of either finds out what the
 * service has open: it sends its request even if it would otherwise know better. No exchange raises
 * SIGPIPE; flushing standard output before a log line can, as printing there can.
 *
 * Threads. Commands and queries of one handle may run at once in any number of threads; of a
 * handle's queries for the current track and for the catalogue one at a time talks to the service,
 * and the others wait. vantro_open(), vantro_close() and vantro_disconnect() must
 * not overlap any other call on the same handle. Different handles have nothing in common. The
 * library starts no thread, and no call is a cancellation point while it waits for the service.
 *
 * Fork. A child cannot use its parent's handles, and connects again: exchanges on them fail, and a
 * query for the current track or the catalogue may wait for ever if the parent was within one.
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

/** What a player is doing. */
enum {
    VANTRO_STATE_NONE = 0,    /**< Not known: the player publishes no state. */
    VANTRO_STATE_IDLE = 1,    /**< Nothing to play. */
    VANTRO_STATE_PLAYING = 2, /**< Playing, at the rate given beside it. */
    VANTRO_STATE_PAUSED = 3,  /**< Holding its position. */
    VANTRO_STATE_STOPPED = 4  /**< Stopped. */
};

/** What a player repeats. */
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

/** What a player is doing. 16 bytes, exactly as the service sent them. */
typedef struct VantroStateInfo {
    int32_t state;   /**< VANTRO_STATE_*. */
    float rate;      /**< Playback rate; 1.0 is normal speed. */
    int32_t repeat;  /**< VANTRO_REPEAT_*. */
    int32_t shuffle; /**< VANTRO_SHUFFLE_*. */
} VantroStateInfo;

/** The list of tracks that a player works through. 16 bytes, exactly as the service sent them. */
typedef struct VantroTrksessionInfo {
    int32_t type;   /**< The service's type of the session. */
    int32_t length; /**< Tracks in it. */
    uint64_t tsid;  /**< Its id. */
} VantroTrksessionInfo;

/** The track that a player is at. */
typedef struct VantroTrackInfo {
    int32_t index;         /**< Its index within the track session. */
    uint64_t tsid;         /**< Id of that track session. */
    MediaNode *media_node; /**< The track as an entry of its source: one record, or NULL. */
    Metadata *metadata;    /**< What is known of it: one record, or NULL. */
} VantroTrackInfo;

/* ---------------------------------------------------------------------------- the connection */

/**
 * Connects to the player service: the user's own if there is one, else the system's. Blocks
 * for the service to accept.
 * @return the handle, to be ended with vantro_disconnect(), or NULL with errno: ENOENT (no service
 *   runs, or the one that runs does not admit this user or asks for a capability that this process
 *   has not), EPROTONOSUPPORT (the service is of another release than this library, which does not
 *   understand its messages), EINTR, EMFILE, ENOMEM, or whatever else kept the connection from
 *   being made.
 */
VANTRO_API VantroHandle *vantro_connect(void);

/**
 * Opens a player. A handle has one player open at most. Blocks.
 * @param handle from vantro_connect().
 * @param name exact name of the player, 1 to 31 characters; copied.
 * @return 0, also where that very player is open already (nothing is sent then); -1: errno EINVAL
 *   (handle NULL, name NULL or empty), ENAMETOOLONG (name above 31 characters); and, leaving errno,
 *   where another player is open (it stays open), for want of memory (nothing is sent), for a
 *   failed exchange, or a refusal (no player of that name). After a failed exchange no player is
 *   open as far as this handle is concerned, and vantro_close() with the same name makes sure of
 *   it. Another player whose opening or closing had failed in its exchange is closed first.
 */
VANTRO_API int vantro_open(VantroHandle *handle, const char *name);

/**
 * Closes the open player, and with it the handle's events. Blocks.
 * @param handle from vantro_connect().
 * @param name name of the open player.
 * @return 0, or -1: handle NULL, no player open, another one open, name NULL or empty (the handle
 *   is as it was); failed exchange, or refusal (the player stays open; the handle's events are
 *   gone). After a failed exchange the call can be made again: a refusal then means that the
 *   service had closed the player already, and gives 0.
 */
VANTRO_API int vantro_close(VantroHandle *handle, const char *name);

/**
 * Closes the player, if one is open, and the connection, and frees the handle, whether or not the
 * service answers. Blocks for the closing.
 * @param handle from vantro_connect(); no longer valid afterwards.
 * @return 0, or -1 where handle is NULL.
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
 * Plays, or continues where it paused.
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
 * Pauses, holding the position.
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
 * @param position milliseconds from the track's start, passed on as it is: what lies outside the
 *                 track is for the service to judge.
 * @return as vantro_play().
 */
VANTRO_API int vantro_seek(VantroHandle *handle, int32_t position);

/**
 * Sets the playback rate.
 * @param handle with an open player.
 * @param rate 1.0 is normal speed; passed on as it is: which rates there are, the service knows.
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
 * Sets what is repeated.
 * @param handle with an open player.
 * @param mode VANTRO_REPEAT_*.
 * @return as vantro_play().
 */
VANTRO_API int vantro_repeat(VantroHandle *handle, int32_t mode);

/** @} */

/**
 * @name Track sessions
 * A track session is the list of tracks that a player works through. Each call needs an open player
 * and blocks until the service has done what it says.
 * Each returns 0, or -1: bad handle, failed exchange, refusal.
 * @{
 */

/**
 * Makes a track session of a node: a song, or all songs below it.
 * @param handle with an open player.
 * @param ms_id   `id` of the media source that holds the node.
 * @param node_id `id` of the node. NULL fails, and nothing is sent; "" is the service's to judge.
 * @param first   address of the first of two values whose meaning is the service's; NULL stands
 *                for a value of 0. catalogue.h says what vantrod makes of both.
 * @param second  the second of them.
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
 * @param index 0 for the first; passed on as it is: what lies outside the session is for the
 *              service to judge.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_jump(VantroHandle *handle, int32_t index);

/** @} */

/**
 * @name Queries
 * Queries need a connected handle; without an open player the service decides what it answers.
 * Each blocks until the service answers.
 * Each returns 0, or -1: handle NULL, failed exchange, refusal.
 * @{
 */

/**
 * Asks what the player is doing.
 * @param handle from vantro_connect().
 * @param info receives a new record, for free(). Untouched on failure.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_current_state(VantroHandle *handle, VantroStateInfo **info);

/**
 * Asks for the current track session.
 * @param handle from vantro_connect().
 * @param info receives a new record, for free(). Untouched on failure.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_current_trksession_info(VantroHandle *handle,
                                                  VantroTrksessionInfo **info);

/**
 * Asks for the current track. Needs some 66 KiB of the calling thread's stack.
 * Also fails where node and metadata together take more than 65536 bytes in their packed form.
 * @param handle from vantro_connect().
 * @param info receives a new record, for vantro_free_track_info(), or: free what it points to as
 *             records.h says, then the record. Set it to NULL before the call: most failures
 *             leave it untouched, but where the service's answer is malformed, or memory for its
 *             strings is short, it receives the record as far as it was read, to be freed
 *             likewise, and the call returns -1.
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
 * Ranges. `offset` is the first entry wanted, counted from 0, and the value found at `count` the
 * number of entries wanted. The service decides what they mean beyond that; vantrod takes a count
 * of 0 or less for all entries.
 * @{
 */

/**
 * Lists the media sources. Needs an open player, and some 66 KiB of the calling thread's stack.
 * Fails where the sources take more than 65536 bytes in their packed form.
 * @param handle with an open player.
 * @param sources, count receive the sources and their number: see Lists.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_media_sources(VantroHandle *handle, MediaSource **sources, int *count);

/**
 * Lists the entries of a node. Needs an open player.
 * @param handle with an open player.
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
 * @param filter what kind of match is wanted, VANTRO_FILTER_* of catalogue.h; NULL or "" for any.
 * @param term   what to look for. "" finds nothing: the call succeeds with a count of 0. NULL fails
 *               with errno EINVAL. Nothing is sent for either.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_search(VantroHandle *handle, int32_t ms_id, const char *filter,
                             const char *term, int32_t offset, int *count, MediaNode **nodes);

/**
 * Lists the tracks of a track session. Needs a connected handle; without an open player the
 * service decides what it answers.
 * @param handle from vantro_connect().
 * @param offset, count, tracks the range wanted, and what receives the tracks: see Ranges and
 * Lists.
 * @param tsid the session's id.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_trksession_tracks(VantroHandle *handle, uint64_t tsid, int32_t offset,
                                            int *count, MediaNode **tracks);

/**
 * Asks for the metadata of a node. Needs an open player, and some 66 KiB of the calling thread's
 * stack. Fails where the metadata take more than 65536 bytes in their packed form.
 * @param handle with an open player.
 * @param ms_id    `id` of the media source that holds the node.
 * @param node_id  `id` of the node. NULL or "" fails; nothing is sent, nor logged.
 * @param metadata receives a new record, for vantro_free_metadata(), or NULL if the service has
 *                 none. Untouched on failure, except that it receives NULL if memory for the
 *                 record is short.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_metadata(VantroHandle *handle, int32_t ms_id, const char *node_id,
                                   Metadata **metadata);

/**
 * Asks for values of a node by their keys. Needs a connected handle; without an open player the
 * service decides what it answers.
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
 * @param handle from vantro_connect().
 * @param ms_id   `id` of the media source that holds the node.
 * @param node_id `id` of the node. NULL or "" fails, and nothing is sent.
 * @param keyv    keys, ended by a NULL entry, which may be the first. NULL fails, and nothing is
 *                sent. If there is no memory to send them the call fails with errno ENOMEM.
 * @param valuev  room for one entry a key. Each receives a new string, for free(), or NULL if
 *                the key has no value; nothing is written after the last, and nothing at all on
 *                failure. NULL fails, and nothing is sent.
 * @return 0, or -1: see the text of the group.
 */
VANTRO_API int vantro_get_extended_metadata(VantroHandle *handle, int32_t ms_id,
                                            const char *node_id, const char *const *keyv,
                                            char **valuev);

/** @} */

#ifdef __cplusplus
}
#endif

/* What the player did, the moment it did it. */
#include <vantro/events.h>

#endif
