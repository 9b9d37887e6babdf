/**
 * @file
 * Notification that objects have something to read, in one of three ways, each for one descriptor
 * of objects from platform_open().
 *
 * A thread that has nothing else to do calls notify_wait(). Any number of readers of a process may
 * wait: they share one of the host's few inotify instances.
 *
 * A loop that waits for several things polls the descriptor of notify_poll_descriptor(), reads
 * until there is nothing more, and calls notify_settle().
 *
 * An armed notification fires once, by a signal to the thread that armed it. A thread that waits
 * for one
 *  1. blocks the signal and also SIGIO: if the thread's queue of real-time signals is full, the
 *     host sends SIGIO instead, and that counts as the wake-up;
 *  2. calls notify_arm(), and waits only if it returned 0;
 *  3. waits for the two signals, for example with sigwaitinfo();
 *  4. on every way out calls notify_disarm(), takes all pending ones of the two signals, and
 *     restores the mask: also if the thread is cancelled, and if notify_arm() returned that there
 *     is input, since that may have come, with its signal, just after arming. A remaining signal
 *     would end the process.
 *
 * A wake-up only means that there may be something to read; the read shows whether there is.
 */
#ifndef VANTRO_PLATFORM_NOTIFY_H
#define VANTRO_PLATFORM_NOTIFY_H

#include <vantro/platform/export.h>
#include <vantro/platform/message.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The only action of notify_arm(): test the conditions, and arm only if none holds. */
enum { NOTIFY_TEST_AND_ARM = 3 };

/** The only condition: a read would return a change, or the end of the publisher. */
enum { NOTIFY_INPUT = 0x10000000 };

/**
 * Tests and arms. An armed descriptor stays armed until notify_disarm(); another notify_arm() arms
 * it for the calling thread. Input that comes between test and arming is not missed. Does not
 * block.
 * @param descriptor from platform_open(), for objects.
 * @param action     NOTIFY_TEST_AND_ARM.
 * @param conditions NOTIFY_INPUT.
 * @param event      kind IPC_EVENT_SIGNAL_THREAD, with the signal number in `connection`, a
 *                   real-time signal; the other fields have no effect.
 * @return 0 if armed; NOTIFY_INPUT if there is input, and then nothing is armed; -1: EBADF (not a
 *   descriptor of objects, or a child of fork), EINVAL (another action, condition, kind or signal),
 *   EMFILE (the host's limits on descriptors or on the user's inotify instances), ENOSPC (the limit
 *   on inotify watches), ENOENT (the host has no /proc), ENOMEM.
 */
VANTRO_PLATFORM_API int notify_arm(int descriptor, int action, int conditions,
                                   const struct ipc_event *event);

/**
 * Disarms. After it returns, no further signal is sent for the descriptor; a signal sent before may
 * be pending. Has no effect if the descriptor is not armed. Does not block, is not a cancellation
 * point, and keeps errno unless it fails.
 * @param descriptor from platform_open(), for objects.
 * @return 0, or -1: EBADF.
 */
VANTRO_PLATFORM_API int notify_disarm(int descriptor);

/** A result of notify_wait(): notify_wake() was called. */
enum { NOTIFY_WOKEN = 0x20000000 };

/**
 * Blocks until a read would return a change or the end of the publisher, until notify_wake(), or
 * until the time limit. An earlier notify_wake() ends the wait at once. A cancellation point. One
 * thread at a time may wait for a descriptor. A waiting reader costs its publisher some time at
 * each change, until it has read 64 changes without another wait.
 * @param descriptor from platform_open(), for objects.
 * @param timeout_ms milliseconds; below 0: no limit; 0: returns at once.
 * @return NOTIFY_INPUT, NOTIFY_WOKEN, or 0 after the time limit; -1: EINTR (any signal handler ran,
 *   also one installed with SA_RESTART), EBADF (not a descriptor of objects, or a child of fork),
 *   EMFILE and ENFILE (no descriptor is left, or the user has as many inotify instances as the host
 *   allows: fs.inotify.max_user_instances; a process needs one for all its waits), ENOSPC (the same
 *   for watches: fs.inotify.max_user_watches), ENOENT (the host has no /proc), ENOMEM.
 */
VANTRO_PLATFORM_API int notify_wait(int descriptor, int timeout_ms);

/**
 * Ends the wait for a descriptor, or the next wait if no thread waits, and makes its poll
 * descriptor readable. Any thread may call it, also while another thread waits, and a signal
 * handler may. Does not block.
 * @param descriptor from platform_open(), for objects.
 * @return 0, or -1: EBADF.
 */
VANTRO_PLATFORM_API int notify_wake(int descriptor);

/**
 * A descriptor for poll() and similar calls, which is readable while there may be something to
 * read: from a change, the end of the publisher or notify_wake() until notify_settle(). It takes an
 * inotify instance and two or three descriptors, and no processor time while nothing happens. Does
 * not block.
 * @param descriptor from platform_open(), for objects.
 * @return the descriptor, the same one at each call, which must not be read; platform_close()
 *   closes it. -1: as notify_wait() without EINTR.
 */
VANTRO_PLATFORM_API int notify_poll_descriptor(int descriptor);

/**
 * Resets the poll descriptor, including wake-ups by notify_wake(). Call it after everything that
 * was available has been read. Does not block.
 * @param descriptor from platform_open(), for objects.
 * @return 0; NOTIFY_INPUT if there is something to read, and the descriptor is still readable; -1:
 *   EBADF (also if there is no poll descriptor), ENOMEM.
 */
VANTRO_PLATFORM_API int notify_settle(int descriptor);

/**
 * Connects a descriptor whose publisher has ended, or was replaced, to the present publisher: the
 * next reads return the present state of its objects, as after platform_open(). The descriptor's
 * number and its poll descriptor do not change. If there is no publisher, notify_wait() and the
 * poll descriptor report from then on when to call this again; meanwhile only changes in the
 * publisher's directory wake the process, and this takes an inotify instance. Must not overlap any
 * call for the descriptor except notify_wake(). Does not block.
 * @param descriptor from platform_open(), for objects.
 * @return 0, or -1: ENOENT or ECONNREFUSED if there is no publisher, EBADF, and otherwise as
 *   platform_open() and notify_poll_descriptor(); a later call may succeed. If it fails, the
 *   results of reads do not change.
 */
VANTRO_PLATFORM_API int notify_reopen(int descriptor);

#ifdef __cplusplus
}
#endif

#endif
