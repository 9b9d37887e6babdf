/**
 * @file
 * Following a player: what it did, the moment it did it. player.h includes this header.
 *
 *     #include <errno.h>
 *     #include <stdio.h>
 *     #include <vantro/player.h>
 *
 *     int main(void) {
 *         VantroHandle *player = vantro_connect();
 *         const VantroEvent *event = NULL;
 *         if (!player || vantro_open(player, "main") != 0) {
 *             fprintf(stderr, "no player \"main\"\n");
 *             return 1;
 *         }
 *         for (;;) {
 *             if (vantro_event_wait(player) != 0) {
 *                 if (errno == EINTR) {
 *                     continue; // a signal handler ran: wait again
 *                 }
 *                 break;
 *             }
 *             event = vantro_event_get(player);
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
 * A service publishes what each of its players is and does as objects: "state", and others by the
 * names that the types below speak of. The first call for events follows the player that is open
 * on the handle, and the first events give the full picture, "state" first. From then on there is
 * an event a change, in the order in which they were published, but:
 *  - A change of "state" comes before those of other objects that were read with it, and several
 *    that were not yet read may come as one.
 *  - A newer change of "status" or "track" replaces an older one that waits to be reported, and
 *    takes its own turn.
 *  - The end of an object is no event, and that of "status" or "track" takes the change with it
 *    that waits to be reported. The end of "state" gives VANTRO_STATE_NONE.
 *  - A handle that lags behind by about a megabyte of changes is told each object as it then is.
 *
 * Ownership and lifetime. vantro_event_get() returns one record of the handle's. It, its texts, its
 * dictionary and the records that it points to are the library's, not to be freed or changed, and
 * live until the next vantro_event_get() or vantro_close() on the handle. What is needed longer is
 * copied. vantro_close() ends the following; it begins again with the next call for events.
 *
 * Results. A record, or 0, on success; NULL, or -1, on failure, which is logged where it is about
 * what the service published or a bad handle (code 0x06C02710, severity 3). A bad handle (NULL, or
 * no player open) leaves errno as it was. Otherwise errno says why:
 *  - ENOENT, ECONNREFUSED: nobody publishes for the player.
 *  - ESTALE: the service has stopped publishing, or died. What it published before was reported.
 *    Close the player, or the handle, and begin again. vantro_event_wait() notices a death at
 *    once; an application that never waits notices it when the next service publishes.
 *  - EBADMSG: what was published cannot be understood. The next call goes on after it, unless the
 *    objects' file is corrupt.
 *  - EACCES, EMFILE, ENFILE, ENOMEM, and in vantro_event_wait() also EINTR, ENOSPC: what they
 *    always mean. The next call tries again.
 * If there is no memory for the handle's events, or for a record, the process ends with abort().
 * vantro_event_get() and vantro_event_wait() flush standard output.
 *
 * Threads. vantro_event_get() on one handle may run in several threads, one at a time, but the
 * record that it returns is one. vantro_event_wait() and vantro_event_data_set() must not overlap a
 * call for events on the same handle. Commands and queries may run meanwhile in other threads.
 * Different handles have nothing in common: each may be waited for in a thread of its own.
 *
 * Signals. The library uses none to wait. A signal handler that runs ends vantro_event_wait(),
 * however it was installed.
 *
 * Event loops, time limits, and ending a wait from another thread: extras.h.
 *
 * Fork. A child cannot use its parent's handles: calls there fail with EBADF, and
 * vantro_event_get() may wait for ever if the parent was within it.
 */
#ifndef VANTRO_EVENTS_H
#define VANTRO_EVENTS_H

#include <stdint.h>

#include <vantro/export.h>
#include <vantro/platform/dictionary.h>
#include <vantro/records.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A connection to the player service; see player.h. */
typedef struct VantroHandle VantroHandle;

/** The type of an event. "status..." stands for every object whose name begins with "status". */
enum {
    VANTRO_EVENT_ERROR = 1,       /**< The player stopped playing because of an error. */
    VANTRO_EVENT_MEDIASOURCE = 2, /**< A media source: "mediasource...", of which "type" and
                                       "media_source" changed. */
    VANTRO_EVENT_STATE = 3,       /**< State, rate, repeat or shuffle. */
    VANTRO_EVENT_TRKSESSION = 4,  /**< The track session: "trksession...", of which "length",
                                       "tsid" and "type" changed. */
    VANTRO_EVENT_TRACK = 5,       /**< The current track: "track...", of which "index", "tsid" and
                                       "media_node" changed. */
    VANTRO_EVENT_STATUS = 6,      /**< The position: "status...", of which "position" changed. */
    VANTRO_EVENT_NONE = 7         /**< Nothing new, where `object_name` is NULL. Otherwise a change
                                       that is none of those above: `dict` says which. */
};

/** What an event says beyond its type. Only the member that belongs to the type is valid. */
typedef union VantroEventDetails {
    /** VANTRO_EVENT_ERROR. */
    struct {
        int32_t code; /**< The service's number of what went wrong; in vantrod VANTRO_ERROR_* of
                           catalogue.h. */
    } error;
    /** VANTRO_EVENT_MEDIASOURCE. */
    struct {
        int32_t type;                    /**< "type", as the service means it. */
        const MediaSource *media_source; /**< The source, or NULL where its text cannot be used. */
    } mediasource;
    /** VANTRO_EVENT_STATE: what was before. The record itself says what is now. */
    struct {
        int32_t state;   /**< VANTRO_STATE_*. */
        float rate;      /**< Playback rate. */
        int32_t repeat;  /**< VANTRO_REPEAT_*. */
        int32_t shuffle; /**< VANTRO_SHUFFLE_*. */
    } state;
    /** VANTRO_EVENT_TRKSESSION. */
    struct {
        int32_t type;   /**< The service's type of the session. */
        int32_t length; /**< Tracks in it. */
        uint64_t tsid;  /**< Its id. */
    } trksession;
    /** VANTRO_EVENT_TRACK. */
    struct {
        int32_t index;               /**< Its index within the track session. */
        uint64_t tsid;               /**< Id of that track session. */
        const MediaNode *media_node; /**< The track, or NULL where its text cannot be used. */
        const Metadata *metadata;    /**< What is known of it, or NULL. */
    } track;
    /** VANTRO_EVENT_STATUS. */
    struct {
        int32_t position; /**< Milliseconds from the track's start. */
    } status;
} VantroEventDetails;

/**
 * An event. `repeat`, `shuffle`, `state` and `rate` tell in every event what the player was last
 * known to do, whatever the event is about.
 */
typedef struct VantroEvent {
    int32_t type;               /**< VANTRO_EVENT_*. */
    int32_t repeat;             /**< VANTRO_REPEAT_*; at first VANTRO_REPEAT_OFF. */
    int32_t shuffle;            /**< VANTRO_SHUFFLE_*; at first VANTRO_SHUFFLE_OFF. */
    int32_t state;              /**< VANTRO_STATE_*; at first VANTRO_STATE_IDLE. */
    float rate;                 /**< Playback rate; at first 1.0. */
    VantroEventDetails details; /**< Depends on the type. */
    const mosk_dict *dict;      /**< The attributes behind the event, for mosk_dict_find_value() and
                                     mosk_dict_entry(): of "state" all that there are, of other
                                     objects those that changed. NULL where there are none. */
    const char *object_name;    /**< The object that changed, or NULL. */
    void *user_data;            /**< What vantro_event_data_set() gave to the object, or NULL. */
} VantroEvent;

/**
 * Gets the next event. Never blocks but for another thread that is in it with the same handle; is
 * no cancellation point. With nothing new it makes no system call.
 * @param handle with an open player.
 * @return the handle's record, VANTRO_EVENT_NONE if nothing is new; or NULL: see above. Whatever
 *   the result, the event that was returned before is then no more.
 */
VANTRO_API const VantroEvent *vantro_event_get(VantroHandle *handle);

/**
 * Blocks until there may be something for vantro_event_get(): at once where something was not yet
 * reported or read, and also when the service stops publishing. May return without anything new. Is
 * a cancellation point.
 * @param handle with an open player.
 * @return 0, or -1: see above; EINTR when another signal interrupted it. It can be called again.
 */
VANTRO_API int vantro_event_wait(VantroHandle *handle);

/**
 * Attaches a value to the object behind the current event. This record and all later events of that
 * object carry it, until the object or the following ends; another object of the same name that
 * comes later does not. Does not block.
 * @param handle with an open player.
 * @param data any value; the library does not look at it.
 * @return 0, or -1 with errno EINVAL: handle NULL, or no current event, or one without `dict`.
 */
VANTRO_API int vantro_event_data_set(VantroHandle *handle, void *data);

/** What a handle keeps to follow its player. Nothing that applications see. */
struct EventQueue;

/**
 * Ends the following of a player. Only vantro_close() calls it.
 * @param queue released with all that it holds. NULL does nothing.
 */
VANTRO_API void vantro_internal_destroy_evq(struct EventQueue *queue);

#ifdef __cplusplus
}
#endif

#endif
