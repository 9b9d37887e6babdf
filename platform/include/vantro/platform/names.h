/**
 * @file
 * Global names: how a client finds a channel of another process.
 *
 * A name is one to several parts joined by "/", the last of which does not end in ".lock". Names
 * live below a runtime directory: "$XDG_RUNTIME_DIR/vantro" where that variable is set and its
 * directory belongs to the effective user and nobody else may write it, else "/run/vantro". Names
 * are published there. A look-up goes to the same place first, and to "/run/vantro" for each name
 * that is not there or whose holder has died: an application finds the user's own service before
 * the system's. Paths and objects are found in the same way. A program that runs with raised
 * privileges ignores the variable.
 *
 * A name is held for as long as its channel lives. When the holder dies, however it dies, the
 * name is free for the next.
 */
#ifndef VANTRO_PLATFORM_NAMES_H
#define VANTRO_PLATFORM_NAMES_H

#include <vantro/platform/export.h>
#include <vantro/platform/path.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A name attached to a channel. Lives as long as the channel. */
struct global_name_attachment {
    struct path_dispatch *dispatch; /**< The handle that it was attached to. */
    int channel;                    /**< The channel on which clients of the name are received. */
};

/**
 * Connects to the channel that holds a name. Blocks until that server accepts, which takes a
 * thread of it that receives.
 * @param name  for example "csm/vantro.sys/default".
 * @param flags 0.
 * @return the connection, or -1: ENOENT (nobody holds the name; ".." or an empty part in it),
 *   ENAMETOOLONG, ECONNREFUSED (the holder has just died), ECONNRESET (it dies meanwhile),
 *   EAGAIN (the server is out of descriptors), EPROTONOSUPPORT (the server's library is of another
 *   release, whose messages this one does not understand), EINTR, EMFILE, ENFILE, ENOMEM.
 */
VANTRO_PLATFORM_API int global_name_open(const char *name, int flags);

/**
 * Closes a connection made by global_name_open().
 * @param connection from global_name_open().
 * @return 0, or -1: EBADF.
 */
VANTRO_PLATFORM_API int global_name_close(int connection);

/**
 * Publishes a name for the channel behind a dispatch handle. Does not block.
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
