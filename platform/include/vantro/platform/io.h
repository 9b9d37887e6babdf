/**
 * @file
 * Opening, reading and writing paths of the platform's path-name space.
 *
 * Platform paths begin with "/sys/", "/kivo/" or "/dev/grantor" and live below the runtime
 * directory (names.h); resolution never leaves that directory and never follows a link. An attached
 * path opens as a connection. A path below "/kivo/" with a question mark opens as objects, which
 * can only be read (objects.h). Any other path is one of the host's file system and opens as a
 * plain descriptor.
 */
#ifndef VANTRO_PLATFORM_IO_H
#define VANTRO_PLATFORM_IO_H

#include <stddef.h>
#include <sys/types.h>

#include <vantro/platform/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Opens a path. For an attached path the call asks the path's owner and blocks until it answers;
 * the resulting descriptor is for messages (ipc_send) and for plain reads and writes.
 * @param path  NUL-terminated.
 * @param flags as open(2): O_RDONLY, O_WRONLY or O_RDWR. Close-on-exec is always set.
 * @return a descriptor to be released with platform_close(), or -1: ENOENT (no such path, ".."
 *   or an empty part in it), ENAMETOOLONG, EACCES (the path's permission bits refuse),
 *   ECONNREFUSED (no process serves it any more), ECONNRESET (its owner died during the call),
 *   EAGAIN (its owner is out of descriptors), EPROTONOSUPPORT (its owner's library is of another
 *   release, whose messages this one does not understand), EINTR, EMFILE, ENFILE, ENOMEM.
 */
VANTRO_PLATFORM_API int platform_open(const char *path, int flags);

/**
 * Reads like read(2). On a connection the path's owner answers, and the call blocks until it does.
 * @param descriptor from platform_open().
 * @param buffer, length the buffer to fill, and its number of bytes.
 * @return the bytes read, 0 at the end; or -1: EBADF, the errors of read(2) and ipc_send(), and for
 *   objects those in objects.h.
 */
VANTRO_PLATFORM_API ssize_t platform_read(int descriptor, void *buffer, size_t length);

/**
 * Writes like write(2). On a connection the path's owner answers with the accepted count, which may
 * be any value from 0 up; one call sends at most PATH_MESSAGE_MAX minus a header.
 * @param descriptor from platform_open().
 * @param buffer, length the bytes to write, and their number.
 * @return the accepted bytes; or -1: the errors of write(2) or ipc_send().
 */
VANTRO_PLATFORM_API ssize_t platform_write(int descriptor, const void *buffer, size_t length);

/**
 * Closes a descriptor of platform_open(). Never fails with EINTR.
 * @param descriptor from platform_open().
 * @return 0, or -1: EBADF.
 */
VANTRO_PLATFORM_API int platform_close(int descriptor);

#ifdef __cplusplus
}
#endif

#endif
