/**
 * @file
 * Learning that an object has something to read, in one of three ways, each for one descriptor that
 * platform_open() gave for objects.
 *
 * A thread that has nothing else to do calls notify_wait(). Any number of readers of a process may
 * wait: they share what the host has of such watches.
 *
 * A loop that waits for several things polls the descriptor that notify_poll_descriptor() gives,
 * reads until there is nothing more, and calls notify_settle().
 *
 * A notification that is armed fires once, by a signal to the thread that armed it. Whoever waits
 * for one
 *  1. blocks the signal, and SIGIO with it: where the thread's queue of real-time signals is full,
 *     the host sends SIGIO instead, and that counts as the wake;
 *  2. calls notify_arm(), and waits only if it returned 0;
 *  3. waits for the two signals, for example with sigwaitinfo();
 *  4. on every way out calls notify_disarm(), takes what is pending of the two (more than one may
 *     be), and restores the mask: also when the thread is cancelled, and when notify_arm() said
 *     that there is input, for that may have come, with its signal, just after it had armed. A
 *     signal that is left over would end the process.
 *
 * A wake says that there may be something to read, no more: the read tells.
 */
#ifndef VANTRO_PLATFORM_NOTIFY_H
#define VANTRO_PLATFORM_NOTIFY_H

#include <vantro/platform/export.h>
#include <vantro/platform/message.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The one action of notify_arm(): test the conditions, and arm only when none holds. */
enum { NOTIFY_TEST_AND_ARM = 3 };

/** The one condition: a read would give something, be it a change or that the publisher is gone. */
enum { NOTIFY_INPUT = 0x10000000 };

/**
 * Tests and arms. An armed descriptor stays armed until notify_disarm(), and is armed again for the
 * calling thread by another notify_arm(). Input that comes between test and arming is not missed.
 * Does not block.
 * @param descriptor from platform_open(), for objects.
 * @param action     NOTIFY_TEST_AND_ARM.
 * @param conditions NOTIFY_INPUT.
 * @param event      kind IPC_EVENT_SIGNAL_THREAD, with the signal number in `connection`, a
 *   real-time signal; the other fields have no effect.
 * @return 0 when armed; NOTIFY_INPUT when there is input, and then nothing is armed; -1: EBADF (not
 *   a descriptor of objects, or a child of fork), EINVAL (another action, condition, kind or
 * signal), EMFILE (the host's limits on descriptors or on inotify instances of the user), ENOSPC
 * (that on inotify watches), ENOENT (the host has no /proc), ENOMEM.
 */
VANTRO_PLATFORM_API int notify_arm(int descriptor, int action, int conditions,
                                   const struct ipc_event *event);

/**
 * Disarms. When it returns no further signal is sent on the descriptor's behalf; one that was sent
 * may be pending. One that is not armed is left as it is. Does not block, is no cancellation point,
 * and keeps errno unless it fails.
 * @param descriptor from platform_open(), for objects.
 * @return 0, or -1: EBADF.
 */
VANTRO_PLATFORM_API int notify_disarm(int descriptor);

/** A result of notify_wait(): notify_wake() was called. */
enum { NOTIFY_WOKEN = 0x20000000 };

/**
 * Blocks until a read would give something, be it a change or that the publisher is gone, until
 * notify_wake(), or until the time is over. A wake that came before is taken, and ends it at once.
 * A cancellation point. One thread at a time may wait for a descriptor. A reader that waits costs
 * its publisher some time at each change, until it has read 64 changes without another wait.
 * @param descriptor from platform_open(), for objects.
 * @param timeout_ms milliseconds; below 0 without a limit, 0 only looks.
 * @return NOTIFY_INPUT, NOTIFY_WOKEN, or 0 when the time is over; -1: EINTR (a signal handler ran,
 *   however it was installed), EBADF (not a descriptor of objects, or a child of fork), EMFILE and
 *   ENFILE (no descriptor is left, or the user has as many inotify instances as the host allows:
 *   fs.inotify.max_user_instances; a process needs one for all its waits), ENOSPC (as many watches:
 *   fs.inotify.max_user_watches), ENOENT (the host has no /proc), ENOMEM.
 */
VANTRO_PLATFORM_API int notify_wait(int descriptor, int timeout_ms);

/**
 * Ends the wait for a descriptor, or the next one if there is none, and makes its poll descriptor
 * readable. Any thread may call it, while another waits too, and a signal handler. Does not block.
 * @param descriptor from platform_open(), for objects.
 * @return 0, or -1: EBADF.
 */
VANTRO_PLATFORM_API int notify_wake(int descriptor);

/**
 * A descriptor for poll() and its like, which is readable while there may be something to read:
 * from a change, the end of the publisher or notify_wake() until notify_settle(). It takes an
 * inotify instance and two or three descriptors, and nothing while nothing happens. Does not block.
 * @param descriptor from platform_open(), for objects.
 * @return the descriptor, the same one at each call, which is not to be read; platform_close()
 *   closes it. -1: as notify_wait() without EINTR.
 */
VANTRO_PLATFORM_API int notify_poll_descriptor(int descriptor);

/**
 * Takes what made the poll descriptor readable, wakes too. To be called after a read that gave
 * nothing. Does not block.
 * @param descriptor from platform_open(), for objects.
 * @return 0; NOTIFY_INPUT when something came meanwhile, and the descriptor is readable still; -1:
 *   EBADF (also if there is no poll descriptor), ENOMEM.
 */
VANTRO_PLATFORM_API int notify_settle(int descriptor);

/**
 * Has a descriptor whose publisher has ended, or was replaced, go on with the publisher that is
 * there now: what is read next is the present state of its objects, as after platform_open().
 * Number and poll descriptor stay as they are. If there is no publisher, notify_wait() and the
 * poll descriptor from then on tell that it is worth asking again, for which nothing wakes the
 * process meanwhile but what happens where the publisher would be; that takes an inotify instance.
 * Must not overlap any call for the descriptor but notify_wake(). Does not block.
 * @param descriptor from platform_open(), for objects.
 * @return 0, or -1: ENOENT or ECONNREFUSED if there is no publisher, EBADF, and otherwise as
 *   platform_open() and notify_poll_descriptor(); a call may succeed later. Nothing has changed
 * then that a read would show.
 */
VANTRO_PLATFORM_API int notify_reopen(int descriptor);

#ifdef __cplusplus
}
#endif

#endif
