/**
 * @file
 * Extensions of the system's published interface: freeing the results of queries; following a
 * player from an event loop, for a limited time, or until another thread ends the wait; time limits
 * for the service; the reason of a failed call; a player's complete status in one exchange; the
 * volume; the names of the players; saved playlists; lists with metadata; lists of any length; and
 * the version of the library.
 *
 * Freeing. Each function frees every string of each record, then the block that holds the records;
 * NULL does nothing. The vantro_free_all_* functions need no count: the library marks the end of
 * each block that it returns. They must not get a block that the application allocated or that a
 * query did not fill. Records that the library owns, such as those of an event, must not be freed.
 * None of these functions blocks, fails, or changes errno; any thread may call any of them.
 */
#ifndef VANTRO_EXTRAS_H
#define VANTRO_EXTRAS_H

#include <stdint.h>

#include <vantro/export.h>
#include <vantro/extras_records.h>
#include <vantro/player.h>
#include <vantro/records.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Frees a block of `count` media sources. A count below 0 counts as 0.
 * @param records, count the block, and the number of its records.
 */
VANTRO_API void vantro_free_media_sources(MediaSource *records, int count);

/**
 * Frees a block of `count` media nodes. A count below 0 counts as 0.
 * @param records, count the block, and the number of its records.
 */
VANTRO_API void vantro_free_media_nodes(MediaNode *records, int count);

/**
 * Frees a block of `count` metadata records. A count below 0 counts as 0.
 * @param records, count the block, and the number of its records.
 */
VANTRO_API void vantro_free_metadata(Metadata *records, int count);

/**
 * Frees all media sources of a block from this library, a query or an unpacker.
 * @param records the block, or NULL.
 */
VANTRO_API void vantro_free_all_media_sources(MediaSource *records);

/**
 * Frees all media nodes of a block from this library, a query or an unpacker.
 * @param records the block, or NULL.
 */
VANTRO_API void vantro_free_all_media_nodes(MediaNode *records);

/**
 * Frees all metadata records of a block from this library, a query or an unpacker.
 * @param records the block, or NULL.
 */
VANTRO_API void vantro_free_all_metadata(Metadata *records);

/**
 * Frees a result of vantro_get_current_track_info(), including its node and metadata.
 * @param info the record, or NULL.
 */
VANTRO_API void vantro_free_track_info(VantroTrackInfo *info);

/**
 * A descriptor that is readable exactly while vantro_event_get() has something to report: for
 * poll(), epoll and event loops built on them. The descriptor belongs to the open player: do not
 * read, write or close it; vantro_close() and vantro_disconnect() close it.
 *
 *     #include <errno.h>
 *     #include <poll.h>
 *     #include <stdio.h>
 *     #include <vantro/extras.h>
 *
 *     int main(void) {
 *         VantroHandle *player = vantro_connect();
 *         if (!player || vantro_open(player, "main") != 0) {
 *             fprintf(stderr, "no player \"main\"\n");
 *             return 1;
 *         }
 *         struct pollfd descriptor = {vantro_event_fd(player), POLLIN, 0};
 *         while (descriptor.fd >= 0) {
 *             if (poll(&descriptor, 1, -1) < 0) {
 *                 continue; // a signal handler ran
 *             }
 *             const VantroEvent *event = vantro_event_get(player);
 *             if (!event && errno != EBADMSG) {
 *                 break;
 *             }
 *             if (event && event->type == VANTRO_EVENT_STATE) {
 *                 printf("state %d at rate %g\n", (int)event->state, event->rate);
 *             }
 *         }
 *         perror("the player can no longer be followed");
 *         vantro_disconnect(player);
 *         return 1;
 *     }
 *
 * One vantro_event_get() suffices each time the descriptor is readable: it stays readable until all
 * is reported. It is also readable when the service stops publishing (the call then fails with
 * ESTALE), and at first, for the complete state. If a call reports a change at the moment when it
 * is published, the descriptor may become readable again; the next call then finds nothing new.
 * While nothing happens, no code runs. Each such descriptor takes one of the user's inotify
 * instances (128 on most systems), and three descriptors. vantro_event_wait() is not needed, but
 * allowed. Must not overlap a call for events on the same handle. Does not block.
 * @param handle with an open player.
 * @return the descriptor, the same one until vantro_close(); or -1 with errno: EINVAL (handle NULL,
 *   or no player open), ENOSPC (no inotify watch is left), or an error of vantro_event_get(). If it
 *   fails, nothing has changed.
 */
VANTRO_API int vantro_event_fd(VantroHandle *handle);

/**
 * vantro_event_wait() for a limited time.
 * @param handle with an open player.
 * @param timeout_ms milliseconds; below 0: no limit; 0: returns at once.
 * @return 1 if there may be an event for vantro_event_get(), or vantro_event_wake() was called; 0
 *   after the time limit; -1 with errno: EINVAL (handle NULL, or no player open), otherwise as
 *   vantro_event_wait().
 */
VANTRO_API int vantro_event_wait_for(VantroHandle *handle, int timeout_ms);

/**
 * Limits every later wait of a handle for the service, including those of vantro_open(),
 * vantro_close() and vantro_disconnect(). A call that exceeds the limit fails with errno ETIMEDOUT,
 * and the log says so. The service may or may not have carried out the request; the handle stays
 * usable, and no later call gets the late answer. A query with a long answer waits twice, once for
 * the answer's length and once for the answer; vantro_disconnect() waits once for closing the
 * player and once for closing the connection. Limited calls cost no more than others; no signal and
 * no thread is used. Does not block. Must not overlap opening, closing or disconnecting the handle;
 * a call that is waiting in another thread may keep its previous limit.
 * @param handle from vantro_connect().
 * @param timeout_ms milliseconds, above 0; below 0: no limit, which is the default.
 * @return 0, or -1 with errno EINVAL: handle NULL, or timeout_ms 0. EBADF: in a child of fork.
 */
VANTRO_API int vantro_set_timeout(VantroHandle *handle, int timeout_ms);

/**
 * vantro_connect() with a limit for each of its waits: if the service is stopped, the call fails
 * after one wait. The handle keeps the limit, as if by vantro_set_timeout(). If there is no memory
 * for the handle, the call fails with ENOMEM and the process does not end.
 * @param timeout_ms milliseconds, above 0; below 0: no limit.
 * @return as vantro_connect(); also ETIMEDOUT, and EINVAL if timeout_ms is 0.
 */
VANTRO_API VantroHandle *vantro_connect_timed(int timeout_ms);

/** Whether a handle outlives its service; see vantro_set_reconnect(). */
enum {
    VANTRO_RECONNECT_OFF = 0, /**< The default: once the service is gone, every call fails. */
    VANTRO_RECONNECT_ON = 1
};

/** The `object_name` of the event with which a handle's events begin again. */
#define VANTRO_OBJECT_RECONNECTED "/reconnected"

/**
 * Makes a handle outlive the service, if that crashes, restarts or is upgraded.
 *
 * Commands and queries. A call in progress when the service ends fails, and is not repeated: the
 * service may have carried it out. The next call connects again, opens the player that was open,
 * and then does its own work; if no service runs yet, it fails with VANTRO_FAILURE_GONE; if the
 * player cannot be opened, it fails like vantro_open(). vantro_close() succeeds while no service
 * runs.
 *
 * Events. When the service ends, vantro_event_get() returns the events that were published before,
 * and then VANTRO_EVENT_NONE without a name, as when nothing is new. Once a service publishes the
 * player again, it returns a VANTRO_EVENT_NONE whose `object_name` is VANTRO_OBJECT_RECONNECTED,
 * with an empty dictionary, and after it the complete state, as at first. Values that
 * vantro_event_data_set() attached before are dropped. vantro_event_wait(), vantro_event_wait_for()
 * and the descriptor of vantro_event_fd(), which stays the same, report when there may be an event;
 * meanwhile only changes in the directory where the player is published wake the process, and one
 * inotify instance is in use. Following starts with the first call for events: if no service runs
 * then, that call fails.
 *
 * The limit of vantro_set_timeout() stays in effect; it applies to connecting and to opening
 * separately. Each call first checks whether the service is alive, with one additional system call.
 * Must not overlap another call on the handle. Does not block.
 * @param handle from vantro_connect().
 * @param mode VANTRO_RECONNECT_*.
 * @return 0, or -1 with errno EINVAL: handle NULL, or another mode.
 */
VANTRO_API int vantro_set_reconnect(VantroHandle *handle, int mode);

/**
 * Queries the player's volume. Like the calls below, this is an extension of vantrod: a service
 * that does not know it refuses it (VANTRO_FAILURE_REFUSED, `number` ENOSYS). Needs an open player.
 * Blocks until the service answers.
 * @param handle with an open player.
 * @param volume receives the answer; untouched on failure.
 * @return 0, or -1: bad handle, failed exchange, refusal.
 */
VANTRO_API int vantro_get_volume(VantroHandle *handle, VantroVolume *volume);

/**
 * Sets the level; muting is independent of the level. Once either was set, the object "volume" has
 * both: vantro_event_get() returns each change as a VANTRO_EVENT_NONE with that name, whose
 * dictionary has "level" and "muted" ("true" or "false"). Needs an open player. Blocks until the
 * service has carried it out.
 * @param handle with an open player.
 * @param level 0 to 100. Sent unchanged; the service refuses other values, and may set a lower
 *   level.
 * @return 0, or -1: bad handle, failed exchange, refusal. If it fails, nothing has changed.
 */
VANTRO_API int vantro_set_volume(VantroHandle *handle, int32_t level);

/**
 * Mutes the player, or unmutes it.
 * @param handle with an open player.
 * @param muted 0 or 1. Sent unchanged; the service refuses other values.
 * @return as vantro_set_volume().
 */
VANTRO_API int vantro_set_muted(VantroHandle *handle, int32_t muted);

/**
 * Queries state, track session, current track, position and volume in one exchange. Separate
 * queries return the same data, but a track may begin between two of them. Needs an open player.
 * Blocks until the service answers.
 *
 *     #include <stdio.h>
 *     #include <vantro/extras.h>
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
 * Frees a result of vantro_get_status(), including its node and metadata. NULL does nothing. Does
 * not block or fail, keeps errno.
 * @param status the record, or NULL.
 */
VANTRO_API void vantro_free_status(VantroStatus *status);

/**
 * Queries how the service identifies the calling program, from the kernel's credentials at the time
 * of connecting. Also an extension of vantrod. Needs a connected handle; no player need be open.
 * Blocks until the service answers.
 * @param handle from vantro_connect().
 * @param identity receives the answer; untouched on failure. Its texts always end with a NUL.
 * @return 0, or -1: bad handle, failed exchange, refusal.
 */
VANTRO_API int vantro_get_identity(VantroHandle *handle, VantroIdentity *identity);

/**
 * Lists the names of the service's players. Like the listings below, this is an extension of
 * vantrod: a service that does not know it refuses it. Needs a connected handle; no player need be
 * open. Blocks until the service answers.
 * @param handle from vantro_connect().
 * @param names receives a new array of that many strings and a NULL, all in one block for free().
 *              Untouched on failure.
 * @return the number of names, or -1: bad handle, failed exchange, refusal, malformed answer, no
 *   memory.
 */
VANTRO_API int vantro_list_players(VantroHandle *handle, char ***names);

/**
 * Makes the service scan all of its music again, soon and in the background: the service notices
 * most changes by itself, but not those that another machine makes in a network file system. Also
 * an extension of vantrod. Needs an open player. Blocks until the service answers, not until the
 * scan ends: "mediasource" events report the results.
 * @param handle with an open player.
 * @return as vantro_play().
 */
VANTRO_API int vantro_rescan(VantroHandle *handle);

/**
 * Like vantro_rescan(), for a part of the music: the folders in which a node's songs are, with
 * everything below these folders. For the top of a media source, or one of its menus, that is the
 * whole source. Also an extension of vantrod: a service that does not know it refuses it.
 * @param handle  with an open player.
 * @param ms_id   the media source.
 * @param node_id a node of it; VANTRO_NODE_ROOT is the top. Borrowed during the call.
 * @return 0, or -1: bad handle, `node_id` NULL, failed exchange, refusal. vantro_last_failure() has
 *   ENOENT if there is no such source or node.
 */
VANTRO_API int vantro_rescan_node(VantroHandle *handle, int32_t ms_id, const char *node_id);

/** Bits of the `flags` of vantro_save_playlist(). */
enum {
    VANTRO_PLAYLIST_REPLACE = 1 /**< Replace an existing playlist of that name. */
};

/**
 * Saves the tracks of the player's current session as a playlist in the service: a node of the
 * media source of type VANTRO_SOURCE_PLAYLISTS (catalogue.h). Also an extension of vantrod: a
 * service that does not know it refuses it. Tracks that have left the catalogue are left out. A
 * "mediasource" event reports the change of the source. Needs an open player. Any thread. Blocks
 * until the playlist is on the disk.
 * @param handle with an open player.
 * @param name   1 to 200 bytes of valid UTF-8, with no slash, no control characters and no dot at
 *               the start. Sent unchanged; borrowed during the call.
 * @param flags  0, or VANTRO_PLAYLIST_*, 32 bits.
 * @return the number of tracks that were saved, above 0; or -1: bad handle, no name, failed
 *   exchange, refusal. vantro_last_failure() has the reason in `number`: EINVAL (invalid name, or
 *   `name` NULL), EEXIST (a playlist of that name exists, and `flags` lacks
 *   VANTRO_PLAYLIST_REPLACE), ENODATA (no session, or none of its tracks is in the catalogue any
 *   more), EMSGSIZE (more than 100000 tracks), EDQUOT (there are 1000 playlists, or 256 MiB of
 *   them), ENOSPC, EACCES, EROFS (of the service's disk), ERANGE (unknown flags). If it fails, an
 *   existing playlist of that name is unchanged.
 */
VANTRO_API int vantro_save_playlist(VantroHandle *handle, const char *name, int32_t flags);

/**
 * Deletes a saved playlist. Also an extension of vantrod. Needs an open player. Any thread. Blocks
 * until the service has carried it out.
 * @param handle with an open player.
 * @param name as for vantro_save_playlist().
 * @return 0, or -1: bad handle, no name, failed exchange, refusal. vantro_last_failure() has ENOENT
 *   if there is no playlist of that name.
 */
VANTRO_API int vantro_delete_playlist(VantroHandle *handle, const char *name);

/**
 * vantro_browse() that also returns the metadata of each entry, in one exchange for a whole page.
 * Needs an open player. Blocks until the service answers.
 *
 *     #include <stdio.h>
 *     #include <vantro/extras.h>
 *
 *     int print_page(VantroHandle *player, int ms_id, const char *node_id, int offset) {
 *         MediaNode *nodes = NULL;
 *         Metadata *metadata = NULL;
 *         int count = 100;
 *         if (vantro_browse_metadata(player, ms_id, node_id, offset, &count, &nodes,
 *                                    &metadata) != 0) {
 *             return -1;
 *         }
 *         for (int i = 0; i < count; i++) {
 *             printf("%s, %s\n", nodes[i].name, metadata[i].artist ? metadata[i].artist : "-");
 *         }
 *         vantro_free_media_nodes(nodes, count);
 *         vantro_free_metadata(metadata, count);
 *         return count;
 *     }
 *
 * @param handle   with an open player.
 * @param ms_id, node_id, offset as for vantro_browse().
 * @param count    in: requested entries; out: returned entries, on success only. vantrod returns at
 *                 most VANTRO_METADATA_PAGE_MAX (protocol.h) in one call, also for a count of 0 or
 *                 less.
 * @param nodes    receives the entries, for vantro_free_media_nodes().
 * @param metadata receives a record for each entry, in the same order, for vantro_free_metadata();
 *                 if an entry has no metadata, the strings are NULL. Both pointers are untouched on
 *                 failure, and if there are no entries.
 * @return as vantro_browse().
 */
VANTRO_API int vantro_browse_metadata(VantroHandle *handle, int32_t ms_id, const char *node_id,
                                      int32_t offset, int *count, MediaNode **nodes,
                                      Metadata **metadata);

/**
 * vantro_search() with metadata, as in vantro_browse_metadata().
 * @param handle with an open player.
 * @param ms_id, filter, term, offset as for vantro_search().
 * @param count, nodes, metadata as for vantro_browse_metadata().
 * @return as vantro_search().
 */
VANTRO_API int vantro_search_metadata(VantroHandle *handle, int32_t ms_id, const char *filter,
                                      const char *term, int32_t offset, int *count,
                                      MediaNode **nodes, Metadata **metadata);

/**
 * vantro_get_trksession_tracks() with metadata, as in vantro_browse_metadata(). A track that has
 * left the catalogue has no metadata.
 * @param handle from vantro_connect().
 * @param tsid, offset as for vantro_get_trksession_tracks().
 * @param count, tracks, metadata as for vantro_browse_metadata().
 * @return as vantro_get_trksession_tracks().
 */
VANTRO_API int vantro_get_trksession_tracks_metadata(VantroHandle *handle, uint64_t tsid,
                                                     int32_t offset, int *count, MediaNode **tracks,
                                                     Metadata **metadata);

/**
 * Makes a cursor over the entries that vantro_browse() lists. Sends no request and does not block;
 * if the node is wrong, the first vantro_cursor_next() fails.
 * @param handle        borrowed; must have an open player when the cursor reads.
 * @param ms_id         `id` of the media source that holds the node.
 * @param node_id       copied. "" is VANTRO_NODE_ROOT.
 * @param offset        index of the first entry, from 0.
 * @param with_metadata 1: entries come with metadata, as in vantro_browse_metadata(); 0: without.
 * @return the cursor, for vantro_cursor_close(); or NULL: errno EINVAL (handle or node_id NULL,
 *   offset below 0, with_metadata neither 0 nor 1) or ENOMEM.
 */
VANTRO_API VantroCursor *vantro_cursor_browse(VantroHandle *handle, int32_t ms_id,
                                              const char *node_id, int32_t offset,
                                              int with_metadata);

/**
 * Makes a cursor over the results of vantro_search(), like vantro_cursor_browse().
 * @param handle, ms_id, offset, with_metadata as for vantro_cursor_browse().
 * @param filter copied; NULL or "" for any kind of match.
 * @param term   copied; "" finds nothing. NULL fails with EINVAL.
 * @return as vantro_cursor_browse().
 */
VANTRO_API VantroCursor *vantro_cursor_search(VantroHandle *handle, int32_t ms_id,
                                              const char *filter, const char *term, int32_t offset,
                                              int with_metadata);

/**
 * Makes a cursor over the tracks of a track session, like vantro_cursor_browse().
 * @param handle, offset, with_metadata as for vantro_cursor_browse().
 * @param tsid the session's id.
 * @return as vantro_cursor_browse().
 */
VANTRO_API VantroCursor *vantro_cursor_tracks(VantroHandle *handle, uint64_t tsid, int32_t offset,
                                              int with_metadata);

/**
 * Returns the next entry. At the end of a page, blocks until the service sends the next one: pages
 * have 100 entries at first, then up to VANTRO_METADATA_PAGE_MAX (protocol.h). A page that is
 * shorter than requested is the last.
 * @param cursor   the cursor.
 * @param node     receives the entry, which the cursor frees: valid until the next call that
 *                 returns 1 or 0, or vantro_cursor_close().
 * @param metadata receives the entry's metadata, valid as long as the entry; receives NULL if the
 *                 cursor was made without metadata. May be NULL. Both are untouched unless 1 is
 *                 returned.
 * @return 1: there is an entry; 0: the list has ended, now and in every later call; -1: cursor NULL
 *   (errno EINVAL), VANTRO_FAILURE_CHANGED, or a failure of the cursor's query. Except for EINVAL
 *   errno is unchanged; vantro_last_failure() has the reason. A failed call can be repeated and
 *   continues at its place; after VANTRO_FAILURE_CHANGED make a new cursor.
 */
VANTRO_API int vantro_cursor_next(VantroCursor *cursor, const MediaNode **node,
                                  const Metadata **metadata);

/**
 * Frees a cursor and its entries. NULL does nothing. Does not block, keeps errno.
 * @param cursor the cursor, or NULL.
 */
VANTRO_API void vantro_cursor_close(VantroCursor *cursor);

/**
 * Returns the reason of the last failed call of player.h or of this header in the calling thread.
 * Successful calls, and calls for events, which report by errno, do not change it. Does not
 * block, allocates nothing, keeps errno.
 * @param failure filled; may be NULL.
 * @return the reason.
 */
VANTRO_API int32_t vantro_last_failure(VantroFailure *failure);

/**
 * Ends the wait for events on a handle, or the next wait if no thread waits, and makes the handle's
 * descriptor readable until the next vantro_event_get(). Several calls may count as one. Any thread
 * may call it, also while another thread waits, but not while a thread opens, closes or disconnects
 * the handle. Does not block.
 * @param handle from vantro_connect().
 * @return 0, or -1 with errno EINVAL: handle NULL.
 */
VANTRO_API int vantro_event_wake(VantroHandle *handle);

/**
 * The version of the library that the program runs with; version.h has the version of the headers
 * that it was compiled with. A library with the same major number and a version at least as high
 * has everything that those headers declare. Neither function blocks or fails; any thread may call
 * them.
 * @return the three numbers as text, "1.2.3"; the library owns it.
 */
VANTRO_API const char *vantro_version(void);

/**
 * The same as one number for comparisons: 10203 is version 1.2.3, like VANTRO_VERSION_NUMBER.
 * @return major * 10000 + minor * 100 + patch.
 */
VANTRO_API int vantro_version_number(void);

#ifdef __cplusplus
}
#endif

#endif
