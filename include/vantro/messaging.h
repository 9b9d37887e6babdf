/**
 * @file
 * The messaging layer: requests and answers between a client and a named service.
 *
 * Client half. msgclient_open() connects to a service by name and instance. Requests then go
 * three ways:
 *  - request with reply: msgclient_putget(), msgclient_putgetv(). The caller blocks until the
 *    service answers.
 *  - fetch of a held answer: msgclient_get(), msgclient_getv(). An answer longer than the
 *    capacity offered is held by the server; the exchange gives MSG_STATUS_QUEUED and the full
 *    length, and one fetch with tag 0 and that capacity gets it.
 *  - request without waiting: msgclient_put(), msgclient_putv() with a tag that is not 0. The
 *    answer is held under the tag, and the client is told by the notification event that it
 *    registered with msgclient_notify() or msgclient_notify_pulse().
 *
 * Server half. A server process calls msgserver_create(), msgserver_add() once a service, and
 * msgserver_thread_loop() in as many threads as it likes. The library starts no thread. Handlers
 * answer with callout_reply() or callout_replyv(), or later, from any thread, callout_reply2().
 * To stop: set `stop` of the server (with __atomic_store_n) and send the server's own channel one
 * pulse for each thread.
 *
 * Results. A "result" below is the reply status of the exchange: 0, a status of the service's own
 * choice, or MSG_STATUS_QUEUED; and where the exchange failed, the error number, never -1. A
 * caller cannot tell a service's status from an error number by its value. Errors that any
 * exchange can give: ENOENT (the indices no longer name an open record), ECONNRESET (the server
 * is gone), EINTR (a signal handler installed without SA_RESTART ran; that exchange is given up
 * and the client stays usable), EBADF (used in a child after fork), EMFILE, ENOMEM, EMSGSIZE (the
 * payload is longer than the server takes, or a vector's lengths do not fit 32 bits together),
 * EINVAL (a null client, or too many vector entries), ENOSYS (not a message server).
 *
 * Vectors are arrays of struct iovec, the POSIX (address, length) pair. A vector has at most 1021
 * entries: the host takes 1024, of which the library needs three.
 *
 * Threads. Any number of threads may exchange on one client at once; msgclient_notify_pulse(),
 * msgclient_wait_pulse() and msgclient_close() must not overlap other use of the same client. A
 * fetch takes the newest held answer of a tag, so threads whose answers may overflow must
 * serialise request and fetch. All blocking calls block without a time limit; a signal ends them.
 * An exchange is no cancellation point; a wait for a pulse or in msgserver_receive() is one.
 *
 * Limits. A service takes up to 32768 opens, 32 of one connection; beyond that an open is refused
 * with ENOMEM. Of answers that nobody fetches an open holds its first, whatever its length, as many
 * as the queue limit it was granted, and else up to 64 more of 16 MiB in all. Beyond that the
 * oldest answers of the same tag make room for one that is too long for its client; if there are
 * none, and for an answer to a put, the reply operations give ENOMEM.
 * For clients of one user a process holds at most 128 MiB of answers, and for all users 512 MiB;
 * user 0 and the process's own user are not counted. The same is done beyond that, and the log says
 * it once, until nothing is held for the user any more.
 *
 * Interruptions. A request that a signal interrupts has no answer any more: what its service
 * answers later is not held. A fetch or a registration that was interrupted takes no effect once it
 * is given up.
 *
 * Fork. A child must not use its parent's clients or servers.
 *
 * A service that echoes:
 *
 *     #include <errno.h>
 *     #include <vantro/messaging.h>
 *
 *     static int32_t echo(MsgOsb *open, MsgContext *context, MsgService *service) {
 *         const int32_t length = (int32_t)context->header->send_length;
 *         (void)service;
 *         if (callout_reply(open, context, 0, context->payload, length) == ENOMEM) {
 *             ipc_error(context->receive_id, ENOMEM);
 *         }
 *         return 0;
 *     }
 *
 *     int main(void) {
 *         MsgServer *server = msgserver_create(65536, 16, MSGSERVER_FLAG_PATH);
 *         if (!server || msgserver_add(server, "echo", NULL, NULL, 1024, echo, NULL, NULL) < 0) {
 *             return 1;
 *         }
 *         return msgserver_thread_loop(server);
 *     }
 */
#ifndef VANTRO_MESSAGING_H
#define VANTRO_MESSAGING_H

#include <pthread.h>
#include <stdint.h>
#include <sys/uio.h>

#include <vantro/export.h>
#include <vantro/platform/message.h>
#include <vantro/platform/path.h>
#include <vantro/server_records.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Longest service name, without its NUL. */
#define MSG_SERVICE_NAME_MAX 31

/** Longest service name and instance together, without NULs. */
#define MSG_NAME_AND_INSTANCE_MAX 64

/** Reply status: the answer is longer than the capacity offered and is held under its tag. */
#define MSG_STATUS_QUEUED 240

/* ------------------------------------------------------------------------------- client half */

/** One connection to a service. Made by msgclient_open(), owned by the caller. Read only. */
typedef struct MsgClient {
    int32_t connection;       /**< Connection to the server. */
    int32_t service_index;    /**< From the open. */
    int32_t open_index;       /**< From the open. */
    int32_t pulse_channel;    /**< Private channel for notification pulses, or -1. */
    int32_t pulse_connection; /**< Own pulse connection to it, or -1. */
    char service_name[MSG_SERVICE_NAME_MAX + 1]; /**< NUL-terminated. */
    int32_t opened_by_path; /**< 1: opened through the service's path; 0: by its global name. */
} MsgClient;

/**
 * Connects to a service: first through the path "/sys/csm/NAME/INSTANCE", then through the global
 * name "csm/NAME/INSTANCE". Blocks until the server answers the open.
 * @param service_name NUL-terminated, at most MSG_SERVICE_NAME_MAX characters.
 * @param instance     NULL for "default"; name and instance together at most
 *                     MSG_NAME_AND_INSTANCE_MAX characters.
 * @param code         message code of the open request, for the service's open handler.
 * @return the client, to be closed with msgclient_close(), or NULL with errno: ENAMETOOLONG;
 *   ENOMEM; ENOENT (no such service; a capability is missing or the path's permission bits refuse,
 *   which both look the same); what the service's open handler chose; EPROTO (what answered is no
 *   message server); EPROTONOSUPPORT (the service's library is of another release); EINVAL (no
 * name); EINTR, EMFILE or ENFILE here, EAGAIN where the service is out of descriptors: there may be
 * such a service; else as the look-up of the global name or the exchange left it.
 */
VANTRO_API MsgClient *msgclient_open(const char *service_name, const char *instance, uint16_t code);

/**
 * Tells the server and blocks until it answers or is gone, closes the connection and frees the
 * client with its pulse channel. Held answers are lost. NULL does nothing.
 * @param client from msgclient_open(), or NULL; no longer valid afterwards.
 * @return 0.
 */
VANTRO_API int msgclient_close(MsgClient *client);

/**
 * Sends a request and blocks for its answer.
 * @param client         from msgclient_open().
 * @param send, send_length the request, and its bytes; may be NULL when they are 0.
 * @param reply, reply_length room for the answer, in bytes; untouched where the answer is shorter;
 *                       may be NULL when they are 0.
 * @param answer_length  receives the answer's length in bytes: after MSG_STATUS_QUEUED the held
 *                       answer's, after a failed exchange the capacity offered, and 0 where the
 *                       vectors were refused before anything was sent. May be NULL.
 * @param code           message code, for the service.
 * @return the result.
 */
VANTRO_API int msgclient_putget(MsgClient *client, const void *send, uint32_t send_length,
                                void *reply, uint32_t reply_length, uint32_t *answer_length,
                                uint16_t code);

/**
 * msgclient_putget() with the request gathered from, and the answer scattered to, vectors.
 * @param client, answer_length, code as for msgclient_putget().
 * @param send, send_count   the parts of the request.
 * @param reply, reply_count the parts that the answer fills, in their order.
 * @return the result.
 */
VANTRO_API int msgclient_putgetv(MsgClient *client, const struct iovec *send, int send_count,
                                 const struct iovec *reply, int reply_count,
                                 uint32_t *answer_length, uint16_t code);

/**
 * Sends a request and returns once the server has accepted it; its answer will be held under
 * `tag` and announced. A client may put any number of requests before it takes a notification.
 * @param client from msgclient_open().
 * @param data, length the request, and its bytes; copied. NULL if there are 0.
 * @param code message code, for the service.
 * @param tag not 0, else EINVAL.
 * @return the result; EAGAIN while the open's queue is full, before any notify, and while more
 *   than IPC_PULSE_BACKLOG notifications wait for the client to take them.
 */
VANTRO_API int msgclient_put(MsgClient *client, uint32_t tag, const void *data, uint32_t length,
                             uint16_t code);

/**
 * msgclient_put() with the request gathered from a vector.
 * @param client, tag, code as for msgclient_put().
 * @param parts, count the parts of the request.
 * @return as msgclient_put().
 */
VANTRO_API int msgclient_putv(MsgClient *client, uint32_t tag, const struct iovec *parts, int count,
                              uint16_t code);

/**
 * Fetches the newest answer held under a tag.
 * @param client from msgclient_open().
 * @param tag    that of the put; 0 for an answer that msgclient_putget() left held.
 * @param reply, reply_length room for the answer, in bytes.
 * @param code   message code, for the service.
 * @param answer_length receives the answer's length; after MSG_STATUS_QUEUED the capacity needed,
 *                      and the answer is still held.
 * @return the answer's own status, or the result; ENOMSG when no answer has that tag. After EINTR
 *   the answer may be lost, and a second fetch may find an older answer of the same tag: ask again
 *   instead. If the server was out of memory, or either side out of descriptors, it is still
 *   held.
 */
VANTRO_API int msgclient_get(MsgClient *client, uint32_t tag, void *reply, uint32_t reply_length,
                             uint32_t *answer_length, uint16_t code);

/**
 * msgclient_get() with the answer scattered to a vector.
 * @param client, tag, answer_length, code as for msgclient_get().
 * @param reply, reply_count the parts that the answer fills, in their order.
 * @return as msgclient_get().
 */
VANTRO_API int msgclient_getv(MsgClient *client, uint32_t tag, const struct iovec *reply,
                              int reply_count, uint32_t *answer_length, uint16_t code);

/**
 * Registers how the client wants to learn of answers to msgclient_put(), and how many of them
 * the server may hold. Replaces an earlier registration.
 * @param client      from msgclient_open().
 * @param queue_limit taken as at least 1 and at most the server's maximum.
 * @param event       copied; its value is replaced by the answer's tag at each delivery. Its pulse
 *                    connection must be this process's own.
 * @return the result; EAGAIN when IPC_PULSE_CONNECTIONS_MAX other pulse connections that still
 *   exist were registered on this client, or the server has no descriptor for one more.
 */
VANTRO_API int msgclient_notify(MsgClient *client, uint32_t queue_limit,
                                const struct ipc_event *event);

/**
 * msgclient_notify() with a pulse on a private channel, which replaces an earlier one.
 * @param client, queue_limit as for msgclient_notify().
 * @return the result, or -1 with errno when the channel or the connection to it cannot be made;
 *   the client then has neither.
 */
VANTRO_API int msgclient_notify_pulse(MsgClient *client, uint32_t queue_limit);

/**
 * Blocks for the next pulse on the private channel.
 * @param client one that has a private channel, from msgclient_notify_pulse().
 * @return its value, the tag of the answer that is ready, or 0 when the receive fails (no private
 *   channel, or a signal handler ran).
 */
VANTRO_API uint32_t msgclient_wait_pulse(MsgClient *client);

/* ------------------------------------------------------------------------------- server half */

/**
 * Creates a server and its channel. Call it before any thread uses the server.
 * @param max_msg_size bytes that a receive buffer's payload capacity grows to at most, in steps of
 *                     1024; taken as at least 1024. Payloads beyond it are refused with EMSGSIZE.
 * @param queue_max    upper bound of the queue limit that a client may ask for.
 * @param flags        MSGSERVER_FLAG_*.
 * @return the server, or NULL with errno: EPERM (the grantor device cannot be opened), ENOMEM,
 *   else as making the channel, dispatch handle or thread key left it.
 */
VANTRO_API MsgServer *msgserver_create(int32_t max_msg_size, int32_t queue_max, int32_t flags);

/**
 * Attaches a service, at any time, also while threads run. In path mode under the path
 * "/sys/csm/NAME/INSTANCE", else under the global name "csm/NAME/INSTANCE".
 * @param server     from msgserver_create().
 * @param name       not NULL, at most MSG_SERVICE_NAME_MAX characters; copied.
 * @param instance   NULL for "default"; name and instance together at most
 *                   MSG_NAME_AND_INSTANCE_MAX characters.
 * @param options    NULL for none; copied. Name mode: the capabilities that a client must hold,
 *                   joined by commas. Path mode: "perms=" octal, "uid=" and "gid=" decimal, in any
 *                   order, joined by commas.
 * @param recv_size  payload in bytes that a request of this service usually has; raises the
 *                   capacity that threads begin with, also when the attach fails.
 * @param request_cb not NULL: answers requests.
 * @param open_cb    NULL or: accepts or refuses an open.
 * @param close_cb   NULL or: called at every close.
 * @return the service's index, or -1 with errno as the failing step left it (EADDRINUSE: a live
 *   process has the name; EINVAL: `name` or `request_cb` is NULL; ENAMETOOLONG).
 */
VANTRO_API int32_t msgserver_add(MsgServer *server, const char *name, const char *instance,
                                 const char *options, int32_t recv_size, MsgHandler request_cb,
                                 MsgHandler open_cb, MsgHandler close_cb);

/**
 * Receives and dispatches until `stop` of the server is not 0; a thread that waits notices at its
 * next message or pulse. An error never ends the loop.
 * @param server from msgserver_create().
 * @return 0.
 */
VANTRO_API int32_t msgserver_thread_loop(MsgServer *server);

/**
 * Blocks for the next message or pulse, into the calling thread's context.
 * @param server from msgserver_create().
 * @return the receive id, 0 for a pulse, or -1 with errno (ENOMEM: no context could be made).
 */
VANTRO_API int32_t msgserver_receive(MsgServer *server);

/**
 * Handles what the calling thread received last.
 * @param server from msgserver_create().
 * @return 0, or -1 when the last receive failed.
 */
VANTRO_API int32_t msgserver_dispatch(MsgServer *server);

/**
 * Makes the calling thread's payload capacity at least `size` bytes, keeping what it holds.
 * @param server from msgserver_create().
 * @param size   bytes, without the header.
 * @return the capacity in effect, or -1 with errno: EMSGSIZE (above max_msg_size, or the service
 *   moved `payload`), ENOMEM, EINVAL (the thread has not received yet); the buffer is then as it
 *   was.
 */
VANTRO_API int32_t msgserver_growmsg(MsgServer *server, int32_t size);

/**
 * Answers the request in `context`, and drops the reference that was held for the answer. To be
 * called once a request, before the thread receives again, without the server lock.
 *
 * An answer longer than the client's capacity, and every answer to a put, is copied and held for
 * the client to fetch.
 * @param open, context what the request handler was given.
 * @param status reply status, 0 or more and not MSG_STATUS_QUEUED.
 * @param data, length the answer, and its bytes; borrowed for the call; may lie in the receive
 *               buffer.
 * @return 0; -1 with errno when the client is gone (ESRCH), or when the answer could not be made
 *   and the client was answered with that error number instead (EINVAL: a negative status, or too
 *   many parts; EMSGSIZE, EMFILE, ENOMEM). The return value ENOMEM: the answer could not be held
 * (no memory, or this open already holds more than its share). A client that waits has then not
 * been answered, and the service answers it with ipc_error(context->receive_id, ENOMEM).
 */
VANTRO_API int32_t callout_reply(MsgOsb *open, MsgContext *context, int32_t status,
                                 const void *data, int32_t length);

/**
 * callout_reply() with the answer gathered from a vector.
 * @param open, context, status as for callout_reply().
 * @param parts, count the parts of the answer, borrowed for the call.
 * @return as callout_reply().
 */
VANTRO_API int32_t callout_replyv(MsgOsb *open, MsgContext *context, int32_t status,
                                  const struct iovec *parts, int32_t count);

/**
 * Answers a put later, from any thread: holds the answer under `tag`, tells the client, and drops
 * the reference that was held for the answer. The client is told also when holding failed.
 * @param open       the open record that the request handler was given.
 * @param status     as for callout_reply().
 * @param parts, count the parts of the answer, borrowed for the call.
 * @param receive_id of the put request.
 * @param tag        of the put request.
 * @return 0, or ENOMEM as for callout_reply().
 */
VANTRO_API int32_t callout_reply2(MsgOsb *open, int32_t receive_id, uint32_t tag, int32_t status,
                                  const struct iovec *parts, int32_t count);

/**
 * Drops one reference of an open record; frees it, with its held answers, when that was the last
 * one and the record is closed. For services that took a reference of their own.
 * @param open the record; not to be touched afterwards.
 * @return 0.
 */
VANTRO_API int32_t _msgserver_lock_then_decr_inuse_and_release_osb_if_closed(MsgOsb *open);

/* -------------------------------------------------------------------------------- slot table */

/**
 * Adds a zero-filled element of `size` bytes in the lowest free slot.
 * @param array the table.
 * @param size  bytes, 0 or more.
 * @return its index, or -1 (negative size, no memory).
 */
VANTRO_API int32_t _array_add(SlotArray *array, int32_t size);

/**
 * @param array, index the table, and the number of one of its slots.
 * @return the element, or NULL for an index out of range or of a free slot.
 */
VANTRO_API void *_array_get(const SlotArray *array, int32_t index);

/**
 * Frees an element and empties its slot.
 * @param array, index the table, and the number of one of its slots.
 * @return 0, or -1 if there is none.
 */
VANTRO_API int32_t _array_del(SlotArray *array, int32_t index);

#ifdef __cplusplus
}
#endif

#endif
