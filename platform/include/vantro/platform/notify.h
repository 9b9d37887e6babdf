/**
 * Being told that an object has something to read.
 *
 * A notification is armed for one descriptor that platform_open() gave for objects, and fires once,
 * by a signal to the thread that armed it. Whoever waits for one
 *  1. blocks the signal, and SIGIO with it: where the thread's queue of real-time signals is full,
 *     the host sends SIGIO instead, and that counts as the wake;
 *  2. calls notify_arm(), and waits only if it returned 0;
 *  3. waits for the two signals, for example with sigwaitinfo();
 *  4. on every way out calls notify_disarm(), takes what is pending of the two (more than one may
 *     be), and restores the mask: also when the thread is cancelled, and when notify_arm() said
 * that there is input, for that may have come, with its signal, just after it had armed. A signal
 *     that is left over would end the process.
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
 * Tests and arms. An armed descriptor stays armed until notify_disarm(), and is armed anew for the
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
 * @return 0, or -1: EBADF.
 */
VANTRO_PLATFORM_API int notify_disarm(int descriptor);

#ifdef __cplusplus
}
#endif

#endif
