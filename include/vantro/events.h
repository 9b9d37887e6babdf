/**
 * @file
 * Following a player by its events. player.h includes this header.
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
 * A service publishes the state of each player as objects: "state", and others with the names that
 * the types below state. The first call for events starts following the open player of the handle,
 * and the first events report the complete state, beginning with "state". If the player is idle, at
 * rate 1, without repeat and shuffle, the first event has the type VANTRO_EVENT_NONE and the object
 * name "state", since these values are what a handle assumes. From then on there is an event for
 * each change, in the order in which the changes were published, with these exceptions:
 *  - A change of "state" comes before changes of other objects that were read with it, and several
 *    unread changes of "state" may come as one event.
 *  - A newer change of "status" or "track" replaces an older unreported one, and is reported at its
 *    own place in the order.
 *  - The end of an object is not an event, and the end of "status" or "track" drops an unreported
 *    change of it. The end of "state" is reported as VANTRO_STATE_NONE.
 *  - If a handle lags by about a megabyte of changes, it gets the present state of each object
 *    instead.
 *
 * Ownership and lifetime. vantro_event_get() returns the single record of the handle. The library
 * owns the record, its texts, its dictionary and the records that it points to: do not free or
 * change them. They live until the next vantro_event_get() or vantro_close() on the handle; copy
 * data that you need longer. vantro_close() ends following; the next call for events starts it
 * again.
 *
 * Results. A record, or 0, on success; NULL, or -1, on failure. A failure is logged if its cause is
 * the published data or a bad handle (code 0x06C02710, severity 3). A bad handle (NULL, or no
 * player open) leaves errno unchanged. Otherwise errno has the reason:
 *  - ENOENT, ECONNREFUSED: no service publishes the player.
 *  - ESTALE: the service has stopped publishing, or crashed. All earlier changes were reported.
 *    Close the player, or the handle, and open it again. vantro_event_wait() notices a crash at
 *    once; an application that never waits notices it when the next service publishes.
 *  - EBADMSG: a published change is malformed. The next call continues after it, unless the
 *    objects' file is corrupt.
 *  - EACCES, EMFILE, ENFILE, ENOMEM, and in vantro_event_wait() also EINTR, ENOSPC: with their
 *    usual meanings. The next call tries again.
 * If there is no memory for the handle's events, or for a record, the process ends with abort().
 * vantro_event_get() and vantro_event_wait() flush standard output.
 *
 * Threads. vantro_event_get() on one handle may run in several threads, one at a time, but the
 * record that it returns is one. vantro_event_wait() and vantro_event_data_set() must not overlap a
 * call for events on the same handle. Commands and queries may run meanwhile in other threads.
 * Different handles are independent: each may have its own waiting thread.
 *
 * Signals. The library uses no signal for waiting. Any signal handler that runs ends
 * vantro_event_wait(), also one installed with SA_RESTART.
 *
 * Event loops, time limits, and ending a wait from another thread: extras.h.
 *
 * Fork. A child cannot use its parent's handles: calls in the child fail with EBADF, and
 * vantro_event_get() may block forever if the parent was in it.
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
    VANTRO_EVENT_MEDIASOURCE = 2, /**< A media source: object "mediasource...", with changes of
                                     "type" and "media_source". */
    VANTRO_EVENT_STATE = 3,       /**< State, rate, repeat or shuffle. */
    VANTRO_EVENT_TRKSESSION = 4,  /**< The track session: object "trksession...", with changes of
                                     "length", "tsid" and "type". */
    VANTRO_EVENT_TRACK = 5,  /**< The current track: object "track...", with changes of "index",
                                "tsid" and "media_node". */
    VANTRO_EVENT_STATUS = 6, /**< The position: object "status...", with a change of "position". */
    VANTRO_EVENT_NONE = 7 /**< Nothing new if `object_name` is NULL; otherwise `dict` has a change
                             of another object, or of "state" without a new value. */
};

/** The data of an event by its type. Only the member of the event's type is valid. */
typedef union VantroEventDetails {
    /** VANTRO_EVENT_ERROR. */
    struct {
        int32_t code; /**< The service's error number; in vantrod VANTRO_ERROR_* of catalogue.h. */
    } error;
    /** VANTRO_EVENT_MEDIASOURCE. */
    struct {
        int32_t type; /**< The attribute "type"; the service defines its meaning. */
        const MediaSource *media_source; /**< The source, or NULL if its text is malformed. */
    } mediasource;
    /** VANTRO_EVENT_STATE: the previous values. The record itself has the present ones. */
    struct {
        int32_t state;   /**< VANTRO_STATE_*. */
        float rate;      /**< Playback rate. */
        int32_t repeat;  /**< VANTRO_REPEAT_*. */
        int32_t shuffle; /**< VANTRO_SHUFFLE_*. */
    } state;
    /** VANTRO_EVENT_TRKSESSION. */
    struct {
        int32_t type;   /**< The service's type of the session. */
        int32_t length; /**< The number of its tracks. */
        uint64_t tsid;  /**< Its id. */
    } trksession;
    /** VANTRO_EVENT_TRACK. */
    struct {
        int32_t index;               /**< Its index within the track session. */
        uint64_t tsid;               /**< Id of that track session. */
        const MediaNode *media_node; /**< The track, or NULL if its text is malformed. */
        const Metadata *metadata;    /**< The track's metadata, or NULL. */
    } track;
    /** VANTRO_EVENT_STATUS. */
    struct {
        int32_t position; /**< Milliseconds from the track's start. */
    } status;
} VantroEventDetails;

/**
 * An event. In every event, whatever its type, `repeat`, `shuffle`, `state` and `rate` are the
 * player's last known values.
 */
typedef struct VantroEvent {
    int32_t type;               /**< VANTRO_EVENT_*. */
    int32_t repeat;             /**< VANTRO_REPEAT_*; at first VANTRO_REPEAT_OFF. */
    int32_t shuffle;            /**< VANTRO_SHUFFLE_*; at first VANTRO_SHUFFLE_OFF. */
    int32_t state;              /**< VANTRO_STATE_*; at first VANTRO_STATE_IDLE. */
    float rate;                 /**< Playback rate; at first 1.0. */
    VantroEventDetails details; /**< Depends on the type. */
    const mosk_dict *dict;      /**< The attributes of the event, for mosk_dict_find_value() and
                                   mosk_dict_entry(): all attributes of "state", the changed ones of
                                   other objects. NULL if there are none. */
    const char *object_name;    /**< The object that changed, or NULL. */
    void *user_data; /**< The value that vantro_event_data_set() attached to the object, or NULL. */
} VantroEvent;

/**
 * Gets the next event. Blocks only while another thread is in this function with the same handle;
 * is not a cancellation point. If nothing is new, it makes no system call.
 * @param handle with an open player.
 * @return the handle's record, VANTRO_EVENT_NONE if nothing is new; or NULL: see above. In every
 *   case the previously returned event is no longer valid.
 */
VANTRO_API const VantroEvent *vantro_event_get(VantroHandle *handle);

/**
 * Blocks until there may be an event for vantro_event_get(). Returns at once if there is an
 * unreported or unread change, and also returns when the service stops publishing. May return
 * although nothing is new. Is a cancellation point.
 * @param handle with an open player.
 * @return 0, or -1: see above; EINTR if a signal interrupted the wait. The call can be repeated.
 */
VANTRO_API int vantro_event_wait(VantroHandle *handle);

/**
 * Attaches a value to the object of the current event. This record and all later events of that
 * object carry the value, until the object ends or following ends; a later object of the same name
 * does not have it. Does not block.
 * @param handle with an open player.
 * @param data any value; the library does not use it.
 * @return 0, or -1 with errno EINVAL: handle NULL, or no current event, or one without `dict`.
 */
VANTRO_API int vantro_event_data_set(VantroHandle *handle, void *data);

/** The data of a handle for following its player. Not for applications. */
struct EventQueue;

/**
 * Ends following a player. Only vantro_close() calls it.
 * @param queue freed with all its contents. NULL does nothing.
 */
VANTRO_API void vantro_internal_destroy_evq(struct EventQueue *queue);

#ifdef __cplusplus
}
#endif

#endif
