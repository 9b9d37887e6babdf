/**
 * @file
 * The messaging layer: requests and answers between a client and a named service.
 *
 * Client half. msgclient_open() connects to a service by name and instance. There are three kinds
 * of requests:
 *  - request with reply: msgclient_putget(), msgclient_putgetv(). The caller blocks until the
 *    service answers.
 *  - fetch of a held answer: msgclient_get(), msgclient_getv(). If an answer is longer than the
 *    offered capacity, the server holds it; the exchange returns MSG_STATUS_QUEUED and the full
 *    length, and one fetch with tag 0 and that capacity gets the answer.
 *  - request without waiting: msgclient_put(), msgclient_putv() with a tag that is not 0. The
 *    server holds the answer under the tag, and notifies the client by the event that the client
 *    registered with msgclient_notify() or msgclient_notify_pulse().
 *
 * Server half. A server process calls msgserver_create(), msgserver_add() once for each service,
 * and msgserver_thread_loop() in any number of threads. The library starts no thread. Handlers
 * answer with callout_reply() or callout_replyv(), or later, from any thread, callout_reply2(). To
 * stop: set `stop` of the server (with __atomic_store_n) and send the server's own channel one
 * pulse for each thread.
 *
 * Results. A "result" below is the reply status of the exchange: 0, a status that the service
 * chose, or MSG_STATUS_QUEUED; if the exchange failed, it is the error number, never -1. A caller
 * cannot distinguish a service's status from an error number by its value. Errors of any exchange:
 * ENOENT (the indices no longer name an open record), ECONNRESET (the server is gone), EINTR (a
 * signal handler installed without SA_RESTART ran; that exchange is given up and the client stays
 * usable), EBADF (used in a child after fork), EMFILE, ENOMEM, EMSGSIZE (the payload is longer than
 * the server accepts, or the sum of a vector's lengths exceeds 32 bits), EINVAL (a null client, or
 * too many vector entries), ENOSYS (not a message server).
 *
 * Vectors are arrays of struct iovec, the POSIX (address, length) pair. A vector has at most 1021
 * entries: the kernel accepts 1024, of which the library needs three.
 *
 * Threads. Any number of threads may make exchanges on one client at the same time;
 * msgclient_notify_pulse(), msgclient_wait_pulse() and msgclient_close() must not overlap other use
 * of the same client. A fetch takes the newest held answer of a tag, so threads whose answers may
 * overflow must serialise request and fetch. All blocking calls block without a time limit; a
 * signal ends them. An exchange is not a cancellation point; a wait for a pulse or in
 * msgserver_receive() is one.
 *
 * Limits. A service accepts up to 32768 opens, 32 of one connection; beyond that an open is refused
 * with ENOMEM. Of unfetched answers an open holds the first one, whatever its length; then as many
 * as the queue limit that it was granted, or otherwise up to 64 more of 16 MiB in all. Beyond that
 * a new answer that is too long for its client displaces the oldest answers with the same tag; if
 * there are none, and for an answer to a put, the reply operations return ENOMEM. A process holds
 * at most 128 MiB of answers for the clients of one user, and 512 MiB for all users; user 0 and the
 * process's own user are not counted. Beyond these limits the same happens, and the log says so
 * once, until no answers are held for the user any more.
 *
 * Interruptions. If a signal interrupts a request, its answer is lost: a later answer of the
 * service is not held. An interrupted fetch or registration takes no effect after it was given up.
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

/** Reply status: the answer is longer than the offered capacity and is held under its tag. */
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
 *   ENOMEM; ENOENT (no such service; also if a capability is missing or the path's permission bits
 *   refuse); the error of the service's open handler; EPROTO (the peer is not a message server);
 *   EPROTONOSUPPORT (the service's library is of another release); EINVAL (no name); EINTR, EMFILE
 *   or ENFILE of this process, EAGAIN if the service is out of descriptors: in these cases the
 *   service may exist; else the error of looking up the global name or of the exchange.
 */
VANTRO_API MsgClient *msgclient_open(const char *service_name, const char *instance, uint16_t code);

/**
 * Notifies the server and blocks until it answers or is gone, then closes the connection and frees
 * the client with its pulse channel. Held answers are lost. NULL does nothing.
 * @param client from msgclient_open(), or NULL; no longer valid afterwards.
 * @return 0.
 */
VANTRO_API int msgclient_close(MsgClient *client);

/**
 * Sends a request and blocks for its answer.
 * @param client        from msgclient_open().
 * @param send, send_length the request, and its number of bytes; may be NULL if that is 0.
 * @param reply, reply_length room for the answer, in bytes; the part after a shorter answer is
 *                       untouched; may be NULL if it is 0 bytes.
 * @param answer_length receives the answer's length in bytes: after MSG_STATUS_QUEUED that of the
 *                      held answer, after a failed exchange the offered capacity, and 0 if the
 *                      vectors were refused before anything was sent. May be NULL.
 * @param code          message code, for the service.
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
 * Sends a request and returns once the server has accepted it; the server will hold the answer
 * under `tag` and notify the client. A client may put any number of requests before it receives a
 * notification.
 * @param client from msgclient_open().
 * @param data, length the request, and its number of bytes; copied. NULL if that is 0.
 * @param code message code, for the service.
 * @param tag not 0, otherwise EINVAL.
 * @return the result; EAGAIN if the open's queue is full, before any msgclient_notify(), and if
 *   more than IPC_PULSE_BACKLOG notifications wait for the client.
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
 * @param client        from msgclient_open().
 * @param tag           that of the put; 0 for an answer that msgclient_putget() left held.
 * @param reply, reply_length room for the answer, in bytes.
 * @param code          message code, for the service.
 * @param answer_length receives the answer's length; after MSG_STATUS_QUEUED the capacity needed,
 *                      and the answer is still held.
 * @return the answer's own status, or the result; ENOMSG if no answer has that tag. After EINTR the
 *   answer may be lost, and a second fetch may find an older answer with the same tag: send the
 *   request again instead. If the server was out of memory, or either side out of descriptors, the
 *   answer is still held.
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
 * Registers the event by which the server notifies the client of answers to msgclient_put(), and
 * the number of answers that the server may hold. Replaces an earlier registration.
 * @param client      from msgclient_open().
 * @param queue_limit raised to 1 or lowered to the server's maximum.
 * @param event       copied; its value is replaced by the answer's tag at each delivery. Its pulse
 *                    connection must belong to this process.
 * @return the result; EAGAIN if IPC_PULSE_CONNECTIONS_MAX other, still existing pulse connections
 *   were registered on this client, or the server has no descriptor for another one.
 */
VANTRO_API int msgclient_notify(MsgClient *client, uint32_t queue_limit,
                                const struct ipc_event *event);

/**
 * msgclient_notify() with a pulse on a private channel, which replaces an earlier one.
 * @param client, queue_limit as for msgclient_notify().
 * @return the result, or -1 with errno if the channel or the connection to it cannot be made; the
 *   client then has neither.
 */
VANTRO_API int msgclient_notify_pulse(MsgClient *client, uint32_t queue_limit);

/**
 * Blocks for the next pulse on the private channel. The end of the service sends no pulse and does
 * not end the wait: end it by a signal from time to time, and call ipc_connected().
 * @param client one that has a private channel, from msgclient_notify_pulse().
 * @return the pulse's value, which is the tag of the ready answer, or 0 if the receive fails (no
 *   private channel, or a signal handler ran).
 */
VANTRO_API uint32_t msgclient_wait_pulse(MsgClient *client);

/* ------------------------------------------------------------------------------- server half */

/**
 * Creates a server and its channel. Call it before any thread uses the server.
 * @param max_msg_size largest payload capacity of a receive buffer in bytes, which grows in steps
 *                     of 1024; raised to 1024 if smaller. Larger payloads are refused with
 *                     EMSGSIZE.
 * @param queue_max    upper bound of the queue limit that a client may request.
 * @param flags        MSGSERVER_FLAG_*.
 * @return the server, or NULL with errno: EPERM (the grantor device cannot be opened), ENOMEM, else
 *   the error of making the channel, dispatch handle or thread key.
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
 *                   order, joined by commas. Without "perms=" the bits are 0666. Each number is
 *                   read as far as it is one, so "perms=6x0" means 6; any other text is ignored.
 *                   Check numbers that come from a user before the call.
 * @param recv_size  usual payload of this service's requests in bytes; raises the initial capacity
 *                   of threads, also if the attach fails.
 * @param request_cb not NULL: answers requests.
 * @param open_cb    accepts or refuses an open; may be NULL.
 * @param close_cb   called at every close; may be NULL.
 * @return the service's index, or -1 with the errno of the failing step (EADDRINUSE: a live process
 *   has the name; EINVAL: `name` or `request_cb` is NULL; ENAMETOOLONG).
 */
VANTRO_API int32_t msgserver_add(MsgServer *server, const char *name, const char *instance,
                                 const char *options, int32_t recv_size, MsgHandler request_cb,
                                 MsgHandler open_cb, MsgHandler close_cb);

/**
 * Receives and dispatches until `stop` of the server is not 0; a waiting thread notices that at its
 * next message or pulse. An error never ends the loop.
 * @param server from msgserver_create().
 * @return 0.
 */
VANTRO_API int32_t msgserver_thread_loop(MsgServer *server);

/**
 * Blocks for the next message or pulse, and receives it into the calling thread's context.
 * @param server from msgserver_create().
 * @return the receive id, 0 for a pulse, or -1 with errno (ENOMEM: no context could be made).
 */
VANTRO_API int32_t msgserver_receive(MsgServer *server);

/**
 * Handles the message or pulse that the calling thread received last.
 * @param server from msgserver_create().
 * @return 0, or -1 if the last receive failed.
 */
VANTRO_API int32_t msgserver_dispatch(MsgServer *server);

/**
 * Makes the calling thread's payload capacity at least `size` bytes, and keeps the payload.
 * @param server from msgserver_create().
 * @param size   bytes, without the header.
 * @return the capacity in effect, or -1 with errno: EMSGSIZE (above max_msg_size, or the service
 *   moved `payload`), ENOMEM, EINVAL (the thread has not received yet); if it fails, the buffer is
 *   unchanged.
 */
VANTRO_API int32_t msgserver_growmsg(MsgServer *server, int32_t size);

/**
 * Answers the request in `context`, and drops the reference that was held for the answer. Call it
 * once for each request, without the server lock. The context and its header belong to the thread
 * that received the request until that thread receives again. To answer later, or in another
 * thread, copy `*context` and `*context->header`, and let `header` of the copy point to the copied
 * header.
 *
 * An answer longer than the client's capacity, and every answer to a put, is copied and held for
 * the client to fetch.
 * @param open, context the arguments of the request handler.
 * @param status reply status, 0 or more and not MSG_STATUS_QUEUED.
 * @param data, length the answer, and its number of bytes; borrowed for the call; may be in the
 *               receive buffer.
 * @return 0; -1 with errno if the client is gone (ESRCH), or if the answer could not be made and
 *   the client was answered with that error number instead (EINVAL: a negative status, or too many
 *   parts; EMSGSIZE, EMFILE, ENOMEM). The return value ENOMEM means that the answer could not be
 *   held (no memory, or this open already holds more than its share). A waiting client has then not
 *   been answered, and the service must answer it with ipc_error(context->receive_id, ENOMEM).
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
 * Answers a put later, from any thread: holds the answer under `tag`, notifies the client, and
 * drops the reference that was held for the answer. The client is notified also if holding failed.
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
 * Drops one reference of an open record; if it was the last one and the record is closed, frees the
 * record with its held answers. For services that took their own reference.
 * @param open the record; do not use it afterwards.
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
