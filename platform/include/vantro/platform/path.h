/**
 * @file
 * The path-attach framework: a process serves paths of the platform's path-name space.
 *
 * A server makes a dispatch handle over its channel, attaches paths to it, receives, and passes
 * every message that it does not know itself to path_dispatch_handle(). The framework answers with
 * the path's handlers; if the owner set none, with these defaults:
 *  - path_check_access() on the path's attribute record decides about opening a path;
 *  - reads, writes and all other requests are refused with ENOSYS;
 *  - the disconnect pulse of a client releases the resources of its open, and its connection id.
 * A message on a connection that did not open its path is refused with EBADF.
 *
 * A program that serves a path only, without another protocol, loops over path_receive() and
 * path_dispatch_handle().
 */
#ifndef VANTRO_PLATFORM_PATH_H
#define VANTRO_PLATFORM_PATH_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <vantro/platform/export.h>
#include <vantro/platform/message.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A dispatch handle: opaque, made by path_dispatch_create(). */
struct path_dispatch;

/** Access bits of path_check_access(), at the place of the owner's permission bits. */
enum { PATH_ACCESS_READ = 0400, PATH_ACCESS_WRITE = 0200 };

/** A description shared by the paths of one process. The configuration word is for the owner's use.
 */
struct path_mount {
    uint32_t configuration; /**< For the owner's use. */
};

/** The attributes of a path, including who may open it. Make it with path_attr_init(). */
struct path_attr {
    uint32_t mode;            /**< File type bits and permission bits. */
    uint32_t uid;             /**< Owner; default: the server's effective user id. */
    uint32_t gid;             /**< Group; default: the server's effective group id. */
    uint64_t size;            /**< Size in bytes; informative. */
    uint64_t serial;          /**< Serial number; informative. */
    struct path_mount *mount; /**< Shared description, or NULL. */
    pthread_mutex_t lock;     /**< Taken by path_attr_lock(). */
};

/** One server thread's context for its current message. */
struct path_context {
    int32_t receive_id;             /**< The result of ipc_receive(). */
    struct ipc_info info;           /**< Filled by ipc_receive(). */
    uint8_t *message;               /**< Buffer of message_max bytes, owned by the context. */
    size_t message_max;             /**< PATH_MESSAGE_MAX. */
    size_t message_length;          /**< Bytes of the message that are in the buffer. */
    struct path_dispatch *dispatch; /**< The handle it was made for. */
};

/** Indices in the table of connect handlers. Others are reserved. */
enum { PATH_CONNECT_OPEN = 0, PATH_CONNECT_HANDLER_COUNT = 8 };

/** Indices in the table of I/O handlers. Others are reserved. */
enum { PATH_IO_READ = 0, PATH_IO_WRITE = 1, PATH_IO_CLOSE = 2, PATH_IO_HANDLER_COUNT = 29 };

/** Flag bits of path_attach() and its default options: stored, without effect. */
struct path_attach_options {
    uint32_t flags;       /**< Stored. */
    uint32_t parts_max;   /**< Stored. */
    uint32_t message_max; /**< Stored. */
};

/**
 * A request to a path, for its handler. For a write, `data` has the written bytes. For a read,
 * `data` is a buffer of `length` bytes to fill, at most as long as the client requested.
 */
struct path_request {
    struct path_context *context; /**< The thread's context, with the current message. */
    void *handle;                 /**< The argument of path_attach(). */
    uint32_t open_flags;          /**< O_RDONLY, O_WRONLY or O_RDWR, as the path was opened. */
    void *data;                   /**< The written bytes, or the buffer to fill. */
    size_t length;                /**< Bytes at `data`. */
};

/**
 * A handler. It does not answer the client itself: its result is the answer.
 * @param request the request, valid until the handler returns.
 * @return 0 or more: success, with that value as the count of a read or write (a write handler
 *   may return any count); below 0: refused, with the error number negated.
 */
typedef int (*path_handler)(struct path_request *request);

/** A path's connect handlers. */
struct path_connect_funcs {
    uint32_t count;                                    /**< How many places are valid. */
    path_handler handlers[PATH_CONNECT_HANDLER_COUNT]; /**< By PATH_CONNECT_*; NULL: the default. */
};

/** A path's I/O handlers. */
struct path_io_funcs {
    uint32_t count;                               /**< How many places are valid. */
    path_handler handlers[PATH_IO_HANDLER_COUNT]; /**< By PATH_IO_*; NULL: the default. */
};

/**
 * Makes a dispatch handle over a channel of this process. It lives as long as the process, or
 * until path_dispatch_destroy().
 * @param channel from channel_create().
 * @param flags 0.
 * @return the handle, or NULL: EBADF, ENOMEM.
 */
VANTRO_PLATFORM_API struct path_dispatch *path_dispatch_create(int channel, unsigned flags);

/**
 * Releases a dispatch handle to which nothing is attached. NULL does nothing.
 * @param dispatch from path_dispatch_create(), or NULL.
 */
VANTRO_PLATFORM_API void path_dispatch_destroy(struct path_dispatch *dispatch);

/**
 * Makes one thread's context.
 * @param dispatch from path_dispatch_create().
 * @return the context, or NULL: ENOMEM.
 */
VANTRO_PLATFORM_API struct path_context *path_context_alloc(struct path_dispatch *dispatch);

/**
 * Frees a context. NULL does nothing.
 * @param context from path_context_alloc(), or NULL.
 */
VANTRO_PLATFORM_API void path_context_free(struct path_context *context);

/**
 * Blocks for the next message or pulse of the context's channel and leaves it in the context.
 * @param context the calling thread's, from path_context_alloc().
 * @return as ipc_receive().
 */
VANTRO_PLATFORM_API int path_receive(struct path_context *context);

/**
 * Answers the message in the context: `receive_id`, `info`, and the message (for a pulse its 16
 * bytes) in `message`, `message_length` bytes. Calls the path's handlers in this thread, with no
 * lock held.
 * @param context the calling thread's, from path_context_alloc().
 * @return 0, or -1 if the answer could not be delivered.
 */
VANTRO_PLATFORM_API int path_dispatch_handle(struct path_context *context);

/**
 * Fills both tables with the defaults. Counts above the tables' sizes are reduced to them.
 * @param connect_count, connect the number of connect handlers, and their table.
 * @param io_count, io the same of the I/O handlers.
 */
VANTRO_PLATFORM_API void path_funcs_init(unsigned connect_count, struct path_connect_funcs *connect,
                                         unsigned io_count, struct path_io_funcs *io);

/**
 * Initialises an attribute record: the given mode; owner and group are the caller's effective ids,
 * or the client's if `client` is given; everything else is zero.
 * @param attr   filled.
 * @param mode   file type bits and permission bits.
 * @param parent may be NULL; its mount is used.
 * @param client may be NULL.
 */
VANTRO_PLATFORM_API void path_attr_init(struct path_attr *attr, uint32_t mode,
                                        const struct path_attr *parent,
                                        const struct ipc_credentials *client);

/**
 * Locks an attribute record. Blocks while another thread has the lock.
 * @param attr the record.
 * @return 0.
 */
VANTRO_PLATFORM_API int path_attr_lock(struct path_attr *attr);

/**
 * Unlocks an attribute record that the calling thread has locked.
 * @param attr the record.
 * @return 0.
 */
VANTRO_PLATFORM_API int path_attr_unlock(struct path_attr *attr);

/**
 * Decides whether a client may access the path of an attribute record. User 0 always may. Otherwise
 * the owner's bits count for the owner, the group's for a member of the group, and the others' for
 * all other users. With a context whose `info.conn_id` names the client's connection, all its
 * supplementary groups count; without a context, those in `client`.
 * @param attr    of the path to be opened.
 * @param context may be NULL.
 * @param mask    PATH_ACCESS_* bits, all of which are required.
 * @param client  NULL refuses.
 * @return 0, or EACCES.
 */
VANTRO_PLATFORM_API int path_check_access(struct path_context *context,
                                          const struct path_attr *attr, uint32_t mask,
                                          const struct ipc_credentials *client);

/**
 * Attaches a path to a dispatch handle and publishes it. Does not block. The path stays attached
 * until the channel is destroyed or the process ends.
 * @param dispatch  from path_dispatch_create().
 * @param options   stored, without effect; may be NULL.
 * @param path      for example "/sys/csm/vantro.sys/default".
 * @param file_type stored, without effect.
 * @param flags     stored, without effect.
 * @param connect   handlers, borrowed while the path is attached.
 * @param io        handlers, borrowed likewise.
 * @param handle    the path's attribute record, borrowed likewise; handlers get it in their
 *                  requests.
 * @return an id of 0 or more, or -1: EADDRINUSE (a live process has the path), ENOENT (not a
 *   platform path, ".." or an empty part), ENAMETOOLONG, EACCES, EMFILE, ENFILE, ENOMEM, ENOSPC.
 */
VANTRO_PLATFORM_API int path_attach(struct path_dispatch *dispatch,
                                    const struct path_attach_options *options, const char *path,
                                    int file_type, unsigned flags,
                                    const struct path_connect_funcs *connect,
                                    const struct path_io_funcs *io, struct path_attr *handle);

#ifdef __cplusplus
}
#endif

#endif
