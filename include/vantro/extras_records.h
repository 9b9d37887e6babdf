/**
 * @file
 * The types of extras.h: the records that its calls fill in, and cursors. That header includes this
 * one.
 */
#ifndef VANTRO_EXTRAS_RECORDS_H
#define VANTRO_EXTRAS_RECORDS_H

#include <stdint.h>

#include <vantro/player.h>
#include <vantro/records.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The volume of a player. 8 bytes, exactly as the service sent them. */
typedef struct VantroVolume {
    int32_t level; /**< 0 to 100; 100, the initial value, does not change the music. */
    int32_t muted; /**< 1 if the player is silent, whatever the level; else 0. */
} VantroVolume;

/** The complete status of a player at one moment. */
typedef struct VantroStatus {
    VantroStateInfo state;           /**< State, rate and modes. */
    VantroTrksessionInfo trksession; /**< Its `type` is VANTRO_TRKSESSION_NONE if there is none. */
    VantroVolume volume;             /**< The volume. */
    int32_t position;      /**< Milliseconds from the start of the track; 0 without a session. */
    int32_t index;         /**< The current track's place in the session, from 0; -1 without one. */
    MediaNode *media_node; /**< The current track, or NULL: no session, or the track has left the
                                catalogue. */
    Metadata *metadata;    /**< Metadata of the current track, or NULL like `media_node`. */
} VantroStatus;

/** The number of supplementary groups in a VantroIdentity. */
#define VANTRO_IDENTITY_GROUPS 8

/** How a service identifies a program, and the identity of the service. 340 bytes, as the service
 * sent them. */
typedef struct VantroIdentity {
    int32_t service_pid; /**< Process id of the service, as the service itself sees it. */
    int32_t pid;         /**< Process id of the calling program, as the service sees it. */
    uint32_t uid;        /**< Its effective user. */
    uint32_t gid;        /**< Its effective group. */
    int32_t group_count; /**< Entries in use of `groups`. */
    uint32_t groups[VANTRO_IDENTITY_GROUPS]; /**< Supplementary groups; there may be more. */
    char version[32];                        /**< The service's version, NUL-terminated. */
    char capabilities[256]; /**< The capabilities that the service demands and the program has,
                               joined by commas; "" if permission bits decide. NUL-terminated; names
                               that do not fit are left out. */
} VantroIdentity;

/** The reason of a failure. */
enum {
    VANTRO_FAILURE_NONE = 0,        /**< No call of this thread has failed yet. */
    VANTRO_FAILURE_GONE = 1,        /**< No service runs, or it has ended. Connect again. */
    VANTRO_FAILURE_REFUSED = 2,     /**< The service refused; `number` is its reason. */
    VANTRO_FAILURE_INTERRUPTED = 3, /**< A signal handler ran. */
    VANTRO_FAILURE_TIMED_OUT = 4,   /**< The limit of vantro_set_timeout() was exceeded. */
    VANTRO_FAILURE_MALFORMED = 5,   /**< The service's answer is malformed. */
    VANTRO_FAILURE_NO_MEMORY = 6,   /**< There is no memory, here or in the service. */
    VANTRO_FAILURE_INVALID = 7, /**< A wrong argument or state of the handle; nothing was sent. */
    VANTRO_FAILURE_OTHER = 8,   /**< See `number`: descriptors, rights, lengths. */
    VANTRO_FAILURE_CHANGED = 9  /**< The list has changed under a cursor. Make a new one. */
};

/** A failure. */
typedef struct VantroFailure {
    int32_t reason; /**< VANTRO_FAILURE_*. */
    int32_t number; /**< An error number of <errno.h>, the service's own if it refused; or 0. */
    char text[128]; /**< For people, in the process's language if the system supports it. */
} VantroFailure;

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
 * A list may change while a cursor reads it. Each page begins with the last entry of the previous
 * page, which the cursor checks: if entries before it were added or removed, reading on would skip
 * or repeat entries, so vantro_cursor_next() fails with VANTRO_FAILURE_CHANGED. Changes after that
 * entry are read like the rest. If as many entries before it were added as removed, the cursor does
 * not notice.
 *
 * A cursor belongs to one thread at a time. It borrows the handle: close it before, or soon after,
 * vantro_disconnect(), and do not call vantro_cursor_next() after that. Any number of cursors may
 * be open on one handle; the service does not know about cursors.
 */
typedef struct VantroCursor VantroCursor;

#ifdef __cplusplus
}
#endif

#endif
