/**
 * @file
 * Global names, by which a client finds a channel of another process.
 *
 * A name is one or more parts joined by "/"; the last part does not end in ".lock". Names live
 * below a runtime directory: "$XDG_RUNTIME_DIR/vantro" if that variable is set and its directory
 * belongs to the effective user and no other user may write it, else "/run/vantro". Names are
 * published there. A look-up tries the same directory first, and then "/run/vantro" if the name is
 * not there or its owner has died: an application finds the user's own service before the system's.
 * Paths and objects are found in the same way. A program that runs with raised privileges ignores
 * the variable.
 *
 * A name is held as long as its channel exists. If its owner dies in any way, the name is free
 * again.
 */
#ifndef VANTRO_PLATFORM_NAMES_H
#define VANTRO_PLATFORM_NAMES_H

#include <vantro/platform/export.h>
#include <vantro/platform/path.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A name attached to a channel. Exists as long as the channel. */
struct global_name_attachment {
    struct path_dispatch *dispatch; /**< The handle that it was attached to. */
    int channel;                    /**< The channel on which clients of the name are received. */
};

/**
 * Connects to the channel that holds a name. Blocks until that server accepts, for which one of its
 * threads must receive.
 * @param name  for example "csm/vantro.sys/default".
 * @param flags 0.
 * @return the connection, or -1: ENOENT (no process holds the name; ".." or an empty part in it),
 *   ENAMETOOLONG, ECONNREFUSED (the owner has just died), ECONNRESET (the owner died during the
 *   call), EAGAIN (the server is out of descriptors), EPROTONOSUPPORT (the server's library is of
 *   another release, whose messages this one does not understand), EINTR, EMFILE, ENFILE, ENOMEM.
 */
VANTRO_PLATFORM_API int global_name_open(const char *name, int flags);

/**
 * Closes a connection made by global_name_open().
 * @param connection from global_name_open().
 * @return 0, or -1: EBADF.
 */
VANTRO_PLATFORM_API int global_name_close(int connection);

/**
 * Publishes a name for the channel of a dispatch handle. Does not block.
 * @param dispatch from path_dispatch_create().
 * @param name     as for global_name_open().
 * @param flags    0.
 * @return the attachment, owned by the dispatch handle, or NULL: EADDRINUSE (a live process
 *   holds the name), ENOENT, ENAMETOOLONG, EACCES, EMFILE, ENFILE, ENOMEM, ENOSPC.
 */
VANTRO_PLATFORM_API struct global_name_attachment *global_name_attach(
    struct path_dispatch *dispatch, const char *name, int flags);

#ifdef __cplusplus
}
#endif

#endif
