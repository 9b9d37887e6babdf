/**
 * @file
 * Conveniences beyond the system's published interface: freeing what queries return, and following
 * a player from an event loop, for a limited time, or until another thread ends it; time limits for
 * the service, why a call failed, all of a player's status in one exchange, the volume, the names
 * of the players, saved playlists, lists that come with their metadata, lists of any length, and
 * the version of the library.
 *
 * Freeing. Each function frees every string of each record, then the block that holds the records;
 * NULL does nothing. Records of the library's own, such as those of an event, are not to be freed.
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
 * @param records, count the block, and how many records it has.
 */
VANTRO_API void vantro_free_media_sources(MediaSource *records, int count);

/**
 * Frees a block of `count` media nodes. A count below 0 counts as 0.
 * @param records, count the block, and how many records it has.
 */
VANTRO_API void vantro_free_media_nodes(MediaNode *records, int count);

/**
 * Frees a block of `count` metadata records. A count below 0 counts as 0.
 * @param records, count the block, and how many records it has.
 */
VANTRO_API void vantro_free_metadata(Metadata *records, int count);

/**
 * Frees what vantro_get_current_track_info() returned, its node and metadata included.
 * @param info the record, or NULL.
 */
VANTRO_API void vantro_free_track_info(VantroTrackInfo *info);

/**
 * A descriptor that is readable while vantro_event_get() may have something: for poll(), epoll and
 * the loops built on them. It belongs to the open player: it is not to be read, written or closed,
 * vantro_close() and vantro_disconnect() close it.
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
 * One vantro_event_get() for each time that it is readable suffices: it stays readable until a call
 * has found nothing. It is readable too when the service stops publishing (the call then fails with
 * ESTALE), and at first, for the full picture. While nothing happens nothing runs. Each such
 * descriptor takes one of the inotify instances that a user has (128 on most hosts), and three
 * descriptors. vantro_event_wait() need not be called, but may be. Must not overlap a call for
 * events on the same handle. Does not block.
 * @param handle with an open player.
 * @return the descriptor, the same one until vantro_close(); or -1: EINVAL (handle NULL, or no
 *   player open), ENOSPC (no inotify watch is left), and what vantro_event_get() fails with.
 * Nothing has changed then.
 */
VANTRO_API int vantro_event_fd(VantroHandle *handle);

/**
 * vantro_event_wait() for a limited time.
 * @param handle with an open player.
 * @param timeout_ms milliseconds; below 0 without a limit, 0 only looks.
 * @return 1 when there may be something for vantro_event_get(), or vantro_event_wake() was called;
 *   0 when the time is over; -1: EINVAL (handle NULL, or no player open), and otherwise as
 *   vantro_event_wait().
 */
VANTRO_API int vantro_event_wait_for(VantroHandle *handle, int timeout_ms);

/**
 * Bounds every later wait of a handle for the service, those of vantro_open(), vantro_close() and
 * vantro_disconnect() too. A call whose time is over fails with errno ETIMEDOUT, and says so in the
 * log. The service may or may not have done what it was told; the handle stays usable, and no later
 * call gets the late answer. A query whose answer is long waits twice, once for the answer's length
 * and once for the answer, and vantro_disconnect() for the closing of the player and of the
 * connection. Bounded calls cost no more than others; no signal and no thread is used. Does not
 * block. Must not overlap opening, closing or disconnecting the handle; a call that is waiting in
 * another thread may keep the limit that it began with.
 * @param handle from vantro_connect().
 * @param timeout_ms milliseconds, above 0; below 0 without a limit, as at first.
 * @return 0, or -1 with errno EINVAL: handle NULL, or timeout_ms 0. EBADF: in a child of fork.
 */
VANTRO_API int vantro_set_timeout(VantroHandle *handle, int timeout_ms);

/**
 * vantro_connect() with a limit for each of its waits: a service that has stopped is given up after
 * one. The handle keeps the limit, as if by vantro_set_timeout().
 * @param timeout_ms milliseconds, above 0; below 0 without a limit.
 * @return as vantro_connect(); also ETIMEDOUT, and EINVAL where timeout_ms is 0.
 */
VANTRO_API VantroHandle *vantro_connect_timed(int timeout_ms);

/** Whether a handle outlives its service; see vantro_set_reconnect(). */
enum {
    VANTRO_RECONNECT_OFF = 0, /**< As at first: once the service is gone, every call fails. */
    VANTRO_RECONNECT_ON = 1
};

/** The `object_name` of the event with which a handle's events begin again. */
#define VANTRO_OBJECT_RECONNECTED "/reconnected"

/**
 * Has a handle outlive the service: one that crashed, was restarted or brought up to date.
 *
 * Commands and queries. A call that is under way when the service ends fails, and is not repeated:
 * the service may have done it. The next one connects again, opens the player that was open, and
 * then does what it is to do; if there is no service yet it fails with VANTRO_FAILURE_GONE, and
 * where the player cannot be opened, as vantro_open() does. vantro_close() succeeds while there is
 * no service.
 *
 * Events. When the service ends, vantro_event_get() gives what it still said, and then
 * VANTRO_EVENT_NONE without a name, as when nothing is new. Once a service publishes the player
 * again, it gives a VANTRO_EVENT_NONE whose `object_name` is VANTRO_OBJECT_RECONNECTED, with an
 * empty dictionary, and after it the full picture, as at first. What vantro_event_data_set()
 * attached before is forgotten. vantro_event_wait(), vantro_event_wait_for() and the descriptor of
 * vantro_event_fd(), which stays the same, tell when it is worth asking; meanwhile nothing wakes
 * the process but what happens in the directory where the player is published, and one inotify
 * instance is in use. Events are followed from the first call for them on: if that is made while
 * there is no service, it fails.
 *
 * The limit of vantro_set_timeout() holds on; it bounds the connecting and the opening each. A call
 * looks first whether the service is there, which is one system call more. Must not overlap
 * another call on the handle. Does not block.
 * @param handle from vantro_connect().
 * @param mode VANTRO_RECONNECT_*.
 * @return 0, or -1 with errno EINVAL: handle NULL, or another mode.
 */
VANTRO_API int vantro_set_reconnect(VantroHandle *handle, int mode);

/**
 * Asks how loud the player plays. Like the calls below an extension of vantrod's: a service that
 * does not know it refuses it (VANTRO_FAILURE_REFUSED, `number` ENOSYS). Needs an open player.
 * Blocks until the service answers.
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

/**
 * Asks for state, track session, current track, position and volume in one exchange. Queries for
 * each of them give the same, but a track may begin between two of them. Needs an open player.
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
 * Frees what vantro_get_status() returned, its node and metadata included. NULL does nothing. Does
 * not block or fail, keeps errno.
 * @param status the record, or NULL.
 */
VANTRO_API void vantro_free_status(VantroStatus *status);

/**
 * Asks how the service identifies the calling program, by what the kernel said when it connected.
 * An extension of vantrod's too. Needs a connected handle; no player need be open. Blocks until the
 * service answers.
 * @param handle from vantro_connect().
 * @param identity receives the answer; untouched on failure. Texts that the service did not end
 *                 are ended.
 * @return 0, or -1: bad handle, failed exchange, refusal.
 */
VANTRO_API int vantro_get_identity(VantroHandle *handle, VantroIdentity *identity);

/**
 * Lists the names of the service's players. Like the listings below an extension of vantrod's: a
 * service that does not know it refuses it. Needs a connected handle; no player need be open.
 * Blocks until the service answers.
 * @param handle from vantro_connect().
 * @param names receives a new array of as many strings and a NULL, all one block for free().
 *              Untouched on failure.
 * @return the number of names, or -1: bad handle, failed exchange, refusal, malformed answer, no
 *   memory.
 */
VANTRO_API int vantro_list_players(VantroHandle *handle, char ***names);

/**
 * Has the service look at all of its music again, soon and in the background: it notices most
 * changes by itself, but not those on a file system of another machine. An extension of vantrod's
 * too. Needs an open player. Blocks until the service answers, not until it has looked: events of
 * kind "mediasource" tell what it found.
 * @param handle with an open player.
 * @return as vantro_play().
 */
VANTRO_API int vantro_rescan(VantroHandle *handle);

/** Bits of the `flags` of vantro_save_playlist(). */
enum {
    VANTRO_PLAYLIST_REPLACE =
        1 /**< Take the place of the playlist of that name, if there is one. */
};

/**
 * Saves the tracks of the player's current session as a playlist, which the service keeps: a node
 * of the media source of type VANTRO_SOURCE_PLAYLISTS (catalogue.h). An extension of vantrod's:
 * a service that does not know it refuses it. Tracks that have left the catalogue are left out. An
 * event of kind "mediasource" tells that the source has changed. Needs an open player. Any thread.
 * Blocks until the playlist has reached the disk.
 * @param handle with an open player.
 * @param name  1 to 200 bytes of valid UTF-8, without slash, control characters and a dot at the
 *              start; passed on as it is. Borrowed during the call.
 * @param flags 0, or VANTRO_PLAYLIST_*, 32 bits.
 * @return the number of tracks that were saved, above 0; or -1: bad handle, no name, failed
 *   exchange, refusal. vantro_last_failure() has the reason in `number`: EINVAL (no such name, or
 *   `name` NULL), EEXIST (there is one, and `flags` does not say VANTRO_PLAYLIST_REPLACE), ENODATA
 *   (no session, or none of its tracks is known any more), EMSGSIZE (more than 100000 tracks),
 *   EDQUOT (1000 playlists, or 256 MiB of them, are there), ENOSPC, EACCES, EROFS (of the service's
 *   disk), ERANGE (unknown flags). A playlist of that name is then as it was.
 */
VANTRO_API int vantro_save_playlist(VantroHandle *handle, const char *name, int32_t flags);

/**
 * Deletes a saved playlist. An extension of vantrod's too. Needs an open player. Any thread. Blocks
 * until the service has done it.
 * @param handle with an open player.
 * @param name as for vantro_save_playlist().
 * @return 0, or -1: bad handle, no name, failed exchange, refusal. ENOENT of vantro_last_failure():
 *   there is none of that name.
 */
VANTRO_API int vantro_delete_playlist(VantroHandle *handle, const char *name);

/**
 * vantro_browse() that also gives what is known of each entry, in one exchange for a whole page.
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
 * @param handle with an open player.
 * @param ms_id, node_id, offset as for vantro_browse().
 * @param count    in: entries wanted; out: entries given, on success only. vantrod gives at most
 *                 VANTRO_METADATA_PAGE_MAX (protocol.h) in one call, also for a count of 0 or less.
 * @param nodes    receives the entries, for vantro_free_media_nodes().
 * @param metadata receives a record for each entry, in the same order, for vantro_free_metadata();
 *                 if nothing is known of an entry, its strings are NULL. Both pointers are
 *                 untouched on failure, and where there are no entries.
 * @return as vantro_browse().
 */
VANTRO_API int vantro_browse_metadata(VantroHandle *handle, int32_t ms_id, const char *node_id,
                                      int32_t offset, int *count, MediaNode **nodes,
                                      Metadata **metadata);

/**
 * vantro_search() with metadata, as vantro_browse_metadata() gives it.
 * @param handle with an open player.
 * @param ms_id, filter, term, offset as for vantro_search().
 * @param count, nodes, metadata as for vantro_browse_metadata().
 * @return as vantro_search().
 */
VANTRO_API int vantro_search_metadata(VantroHandle *handle, int32_t ms_id, const char *filter,
                                      const char *term, int32_t offset, int *count,
                                      MediaNode **nodes, Metadata **metadata);

/**
 * vantro_get_trksession_tracks() with metadata, as vantro_browse_metadata() gives it. Of a track
 * that has left the catalogue nothing is known.
 * @param handle from vantro_connect().
 * @param tsid, offset as for vantro_get_trksession_tracks().
 * @param count, tracks, metadata as for vantro_browse_metadata().
 * @return as vantro_get_trksession_tracks().
 */
VANTRO_API int vantro_get_trksession_tracks_metadata(VantroHandle *handle, uint64_t tsid,
                                                     int32_t offset, int *count, MediaNode **tracks,
                                                     Metadata **metadata);

/**
 * A cursor: reads a list of any length entry by entry, and holds one page of it at a time.
 *
 *     #include <stdio.h>
 *     #include <vantro/extras.h>
 *
 *     int print_songs(VantroHandle *player, int ms_id) {
 *         VantroCursor *cursor = vantro_cursor_browse(player, ms_id, "songs", 0, 1);
 *         if (!cursor) {
 *             return -1;
 *         }
 *         const MediaNode *node;
 *         const Metadata *metadata;
 *         int result;
 *         while ((result = vantro_cursor_next(cursor, &node, &metadata)) == 1) {
 *             printf("%s, %s\n", node->name, metadata->artist ? metadata->artist : "-");
 *         }
 *         if (result == -1) {
 *             VantroFailure failure;
 *             vantro_last_failure(&failure);
 *             fprintf(stderr, "%s\n", failure.text);
 *         }
 *         vantro_cursor_close(cursor);
 *         return result;
 *     }
 *
 * A list may change while a cursor reads it. Each page begins with the last entry that was given,
 * which the cursor checks: where entries in front of it have come or gone, reading on would leave
 * out some entries or give them twice, so vantro_cursor_next() fails with VANTRO_FAILURE_CHANGED.
 * Changes after that entry are read like the rest. As many entries that came in front of it as
 * went there are not noticed.
 *
 * A cursor belongs to one thread at a time. It borrows the handle: close it before, or soon after,
 * vantro_disconnect(), and do not call vantro_cursor_next() after that. Any number of cursors may
 * be open on one handle; the service knows nothing of them.
 */
typedef struct VantroCursor VantroCursor;

/**
 * Makes a cursor over the entries of a node, as vantro_browse() lists them. Asks nothing of the
 * service yet and does not block; an error of the node appears at the first vantro_cursor_next().
 * @param handle        borrowed; with an open player when the cursor reads.
 * @param ms_id         `id` of the media source that holds the node.
 * @param node_id       copied. "" is VANTRO_NODE_ROOT.
 * @param offset        the first entry wanted, counted from 0.
 * @param with_metadata 1: each entry comes with what is known of it, as vantro_browse_metadata()
 *                      gives it; 0: without.
 * @return the cursor, for vantro_cursor_close(); or NULL: errno EINVAL (handle or node_id NULL,
 *   offset below 0, with_metadata neither 0 nor 1) or ENOMEM.
 */
VANTRO_API VantroCursor *vantro_cursor_browse(VantroHandle *handle, int32_t ms_id,
                                              const char *node_id, int32_t offset,
                                              int with_metadata);

/**
 * As vantro_cursor_browse(), over what vantro_search() finds.
 * @param handle, ms_id, offset, with_metadata as for vantro_cursor_browse().
 * @param filter copied; NULL or "" for any kind of match.
 * @param term   copied; "" finds nothing. NULL fails with EINVAL.
 * @return as vantro_cursor_browse().
 */
VANTRO_API VantroCursor *vantro_cursor_search(VantroHandle *handle, int32_t ms_id,
                                              const char *filter, const char *term, int32_t offset,
                                              int with_metadata);

/**
 * As vantro_cursor_browse(), over the tracks of a track session.
 * @param handle, offset, with_metadata as for vantro_cursor_browse().
 * @param tsid the session's id.
 * @return as vantro_cursor_browse().
 */
VANTRO_API VantroCursor *vantro_cursor_tracks(VantroHandle *handle, uint64_t tsid, int32_t offset,
                                              int with_metadata);

/**
 * Gives the next entry. Blocks for the service if a page is used up: pages have 100 entries at
 * first, then up to VANTRO_METADATA_PAGE_MAX (protocol.h). A page shorter than wanted is the last.
 * @param cursor   the cursor.
 * @param node     receives the entry, which the cursor frees: valid until the next call that
 *                 returns 1 or 0, or vantro_cursor_close().
 * @param metadata receives what is known of it, valid as long; NULL if the cursor was made
 *                 without. May be NULL. Both are untouched unless 1 is returned.
 * @return 1: there is an entry; 0: the list has ended, now and in every later call; -1: cursor NULL
 *   (errno EINVAL), VANTRO_FAILURE_CHANGED, or as the query that it stands for; errno is left
 *   otherwise, vantro_last_failure() says why. A call that failed can be made again and goes on
 *   where it was; after VANTRO_FAILURE_CHANGED a new cursor is the way on.
 */
VANTRO_API int vantro_cursor_next(VantroCursor *cursor, const MediaNode **node,
                                  const Metadata **metadata);

/**
 * Frees a cursor and its entries. NULL does nothing. Does not block, keeps errno.
 * @param cursor the cursor, or NULL.
 */
VANTRO_API void vantro_cursor_close(VantroCursor *cursor);

/**
 * Tells why the last call of player.h or vantro_connect_timed() that failed in the calling thread
 * did so. Calls that succeed, and those for events, which say it by errno, leave it as it is. Does
 * not block, allocates nothing, keeps errno.
 * @param failure filled; may be NULL.
 * @return the reason.
 */
VANTRO_API int32_t vantro_last_failure(VantroFailure *failure);

/**
 * Ends the wait for events on a handle, or the next one if nobody waits, and makes its
 * descriptor readable until the next vantro_event_get(). Several wakes may count as one. Any thread
 * may call it, also while another waits, but not while one opens, closes or disconnects the handle.
 * Does not block.
 * @param handle from vantro_connect().
 * @return 0, or -1 with errno EINVAL: handle NULL.
 */
VANTRO_API int vantro_event_wake(VantroHandle *handle);

/**
 * The version of the library that the program runs with; version.h has that of the headers it was
 * compiled against. A library of the same major number and of a version at least as high has all
 * that those headers declare. Neither function blocks or fails; any thread may call them.
 * @return the three numbers as text, "1.2.3", the library's own.
 */
VANTRO_API const char *vantro_version(void);

/**
 * The same as one number to compare: 10203 is version 1.2.3, as VANTRO_VERSION_NUMBER.
 * @return major * 10000 + minor * 100 + patch.
 */
VANTRO_API int vantro_version_number(void);

#ifdef __cplusplus
}
#endif

#endif
