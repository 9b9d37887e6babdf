/**
 * @file
 * Opening what lies in the platform's path-name space, and reading and writing it.
 *
 * Platform paths begin with "/sys/", "/kivo/" or "/dev/grantor" and live below the runtime
 * directory (names.h), where resolution never leaves it and never follows a link. An attached
 * path opens as a connection, one below "/kivo/" that has a question mark as objects, which can
 * only be read (objects.h); any other path is the host's own and opens as a plain descriptor.
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
 * Opens a path. For an attached path the path's owner is asked, and the call blocks until it
 * answers; the result carries messages (ipc_send) and plain reads and writes alike.
 * @param path  NUL-terminated.
 * @param flags as open(2): O_RDONLY, O_WRONLY or O_RDWR. Close-on-exec is always set.
 * @return a descriptor to be released with platform_close(), or -1: ENOENT (no such path, ".."
 *   or an empty part in it), ENAMETOOLONG, EACCES (the path's permission bits refuse),
 *   ECONNREFUSED (nobody serves it any more), ECONNRESET (its owner dies meanwhile), EAGAIN (its
 *   owner is out of descriptors), EPROTONOSUPPORT (its owner's library is of another release, whose
 *   messages this one does not understand), EINTR, EMFILE, ENFILE, ENOMEM.
 */
VANTRO_PLATFORM_API int platform_open(const char *path, int flags);

/**
 * Reads, as read(2). On a connection the path's owner answers, and the call blocks for it.
 * @param descriptor from platform_open().
 * @param buffer, length what to fill, in bytes.
 * @return the bytes read, 0 at the end; or -1: EBADF, and as read(2), ipc_send() and, of objects,
 *   objects.h.
 */
VANTRO_PLATFORM_API ssize_t platform_read(int descriptor, void *buffer, size_t length);

/**
 * Writes, as write(2). On a connection the path's owner answers with the count it took, which it
 * may choose freely from 0 up; more than PATH_MESSAGE_MAX less a header in one call is cut.
 * @param descriptor from platform_open().
 * @param buffer, length what to write, in bytes.
 * @return the bytes taken; or -1: as write(2) or ipc_send().
 */
VANTRO_PLATFORM_API ssize_t platform_write(int descriptor, const void *buffer, size_t length);

/**
 * Closes what platform_open() returned. Never fails with EINTR.
 * @param descriptor from platform_open().
 * @return 0, or -1: EBADF.
 */
VANTRO_PLATFORM_API int platform_close(int descriptor);

#ifdef __cplusplus
}
#endif

#endif
