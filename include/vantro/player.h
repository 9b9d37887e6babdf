/**
 * Driving a player: connect to the player service, open one of its players, tell it what to do,
 * ask what it is doing.
 *
 *     #include <stdio.h>
 *     #include <stdlib.h>
 *     #include <vantro/player.h>
 *
 *     int main(void) {
 *         VantroHandle *player = vantro_connect();
 *         VantroStateInfo *info = NULL;
 *         if (!player || vantro_open(player, "main") || vantro_play(player) ||
 *             vantro_get_current_state(player, &info))
 *             return 1;
 *         printf("state %d at rate %g\n", (int)info->state, info->rate);
 *         free(info);
 *         return vantro_disconnect(player);
 *     }
 *
 * Results. A function returns 0 on success and -1 on failure, unless its own text says otherwise.
 * Why it failed is logged: the library writes to the system's log (code 0x06B02710), severity 3
 * where the service could not be reached, 5 where an argument was wrong or the service refused.
 * errno is set only where a function's text says so; any other failure leaves it as it was. Three
 * failures are common to many functions:
 *  - bad handle: NULL, or no player is open where one is needed. Nothing is sent.
 *  - failed exchange: the service is gone (for good: connect anew), a signal handler interrupted
 *    the call, the process is short of descriptors or memory, or the answer was longer than it may
 *    be.
 *  - refusal: the service answered that it did not do it, or answered too little.
 * Where there is no memory for a handle, or for the one record that a query returns, the process
 * ends with abort(). Before it logs, the library flushes standard output, so that both appear in
 * their order.
 *
 * Output parameters are valid addresses, never NULL, and written on success only, unless a
 * function's text says otherwise.
 *
 * Ownership. What a query returns belongs to the caller. VantroStateInfo and VantroTrksessionInfo
 * are one block, for free(); records with strings are described in records.h, and extras.h has
 * functions that free them. Arguments are borrowed for the call.
 *
 * Blocking. Every function that talks to the service blocks until it answers, without a time
 * limit. vantro_connect() does too.
 *
 * Signals. A handler installed without SA_RESTART fails a blocked call (vantro_disconnect() goes
 * on). The service may or may not have done what it was told; the handle stays usable. No exchange
 * raises SIGPIPE; flushing standard output before a log line can, as printing there can.
 *
 * Threads. Commands and queries of one handle may run at once in any number of threads; queries for
 * the current track wait for each other. vantro_open(), vantro_close() and vantro_disconnect() must
 * not overlap any other call on the same handle. Different handles have nothing in common. The
 * library starts no thread, and no call is a cancellation point while it waits for the service.
 *
 * Fork. A child cannot use its parent's handles, and connects anew: exchanges on them fail, and a
 * query for the current track may wait for ever where the parent was within one.
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
 * Connects to the player service: the user's own where there is one, else the system's. Blocks
 * for the service to accept.
 * @return the handle, to be ended with vantro_disconnect(), or NULL with errno: ENOENT (no service
 *   runs, or the one that runs does not admit this user or asks for a capability that this process
 *   has not), EINTR, EMFILE, ENOMEM, or whatever else kept the connection from being made.
 */
VANTRO_API VantroHandle *vantro_connect(void);

/**
 * Opens a player. A handle has one player open at most. Blocks.
 * @param name exact name of the player, 1 to 31 characters; copied.
 * @return 0, also where that very player is open already (nothing is sent then); -1: errno EINVAL
 *   (handle NULL, name NULL or empty), ENAMETOOLONG (name above 31 characters); and, leaving errno,
 *   where another player is open (it stays open), for want of memory (nothing is sent), for a
 *   failed exchange, or a refusal (no player of that name).
 */
VANTRO_API int vantro_open(VantroHandle *handle, const char *name);

/**
 * Closes the open player, and with it the handle's events. Blocks.
 * @param name name of the open player.
 * @return 0, or -1: handle NULL, no player open, another one open, name NULL or empty (the handle
 *   is as it was); failed exchange, or refusal (the player stays open; the handle's events are
 *   gone).
 */
VANTRO_API int vantro_close(VantroHandle *handle, const char *name);

/**
 * Closes the player, if one is open, and the connection, and frees the handle, whether or not the
 * service plays along. Blocks while it takes leave.
 * @return 0, or -1 where handle is NULL.
 */
VANTRO_API int vantro_disconnect(VantroHandle *handle);

/* ------------------------------------------------------------------------------ the commands */
/*
 * Each command needs an open player and blocks until the service has carried it out.
 * @return 0, or -1: bad handle, failed exchange, refusal, or a mode out of range (nothing is sent
 *   then). The handle is never changed.
 */

/** Plays, or plays on from where it paused. */
VANTRO_API int vantro_play(VantroHandle *handle);

/** Stops. */
VANTRO_API int vantro_stop(VantroHandle *handle);

/** Pauses, holding the position. */
VANTRO_API int vantro_pause(VantroHandle *handle);

/** Goes to the next track of the track session. */
VANTRO_API int vantro_next(VantroHandle *handle);

/** Goes to the previous track of the track session. */
VANTRO_API int vantro_previous(VantroHandle *handle);

/**
 * Moves within the track.
 * @param position milliseconds from the track's start, passed on as it is: what lies outside the
 *                 track is for the service to judge.
 */
VANTRO_API int vantro_seek(VantroHandle *handle, int32_t position);

/**
 * Sets the playback rate.
 * @param rate 1.0 is normal speed; passed on as it is: which rates there are, the service knows.
 */
VANTRO_API int vantro_set_playback_rate(VantroHandle *handle, float rate);

/**
 * Turns shuffling on or off.
 * @param mode VANTRO_SHUFFLE_*.
 */
VANTRO_API int vantro_shuffle(VantroHandle *handle, int32_t mode);

/**
 * Sets what is repeated.
 * @param mode VANTRO_REPEAT_*.
 */
VANTRO_API int vantro_repeat(VantroHandle *handle, int32_t mode);

/* ------------------------------------------------------------------------------- the queries */
/*
 * Queries need a connected handle; without an open player the service decides what it answers.
 * Each blocks until the service answers.
 * @return 0, or -1: handle NULL, failed exchange, refusal.
 */

/**
 * Asks what the player is doing.
 * @param info receives a new record, for free(). Untouched on failure.
 */
VANTRO_API int vantro_get_current_state(VantroHandle *handle, VantroStateInfo **info);

/**
 * Asks for the current track session.
 * @param info receives a new record, for free(). Untouched on failure.
 */
VANTRO_API int vantro_get_current_trksession_info(VantroHandle *handle,
                                                  VantroTrksessionInfo **info);

/**
 * Asks for the current track. Needs some 66 KiB of the calling thread's stack.
 * @param info receives a new record, for vantro_free_track_info(), or: free what it points to as
 *             records.h says, then the record. Set it to NULL before the call: most failures
 *             leave it untouched, but where the service's answer is malformed, or memory for its
 *             strings is short, it receives the record as far as it was read, to be freed
 *             likewise, and the call returns -1.
 * Also fails where node and metadata together take more than 65536 bytes in their packed form.
 */
VANTRO_API int vantro_get_current_track_info(VantroHandle *handle, VantroTrackInfo **info);

/**
 * Asks for the position within the current track.
 * @param position receives milliseconds from the track's start. Untouched on failure.
 */
VANTRO_API int vantro_get_current_track_position(VantroHandle *handle, int32_t *position);

#ifdef __cplusplus
}
#endif

#endif
