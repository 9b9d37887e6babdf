/**
 * @file
 * Message passing: synchronous exchanges between processes, and pulses.
 *
 * A server makes a channel and receives on it, in any number of threads. A client holds a
 * connection to a channel and sends on it: the call gathers one message from a vector, blocks until
 * the server replies, scatters the reply into a second vector and returns the reply status. A pulse
 * is a fixed 16-byte record that is delivered to a channel and has no answer.
 *
 * Every operation in this header promises the following:
 *  - Failure is -1 with errno set, unless the operation's own text says otherwise. The error
 *    numbers are those of the host's <errno.h>.
 *  - Any thread may call any operation. Several threads may make exchanges on one connection at the
 *    same time, each blocked in its own send; no lock is held across an exchange.
 *  - No operation raises SIGPIPE, leaks a descriptor into an executed program, or changes the
 *    caller's signal mask.
 *  - No peer can block or crash this process, or make it grow beyond the limits in limits.h;
 *    ipc_lend_closing_thread() states the remaining exceptions for blocking. A peer's misconduct
 *    ends that peer's connection and affects no other peer.
 *  - After fork the child cannot use the parent's connections: every use in the child fails with
 *    EBADF.
 *
 * Numbers. Connections, channels, pulse connections and server-side connection ids are positive
 * ints (or a real descriptor, where platform_open made the connection). The kinds have disjoint
 * ranges, so a number of one kind is never valid as another kind.
 */
#ifndef VANTRO_PLATFORM_MESSAGE_H
#define VANTRO_PLATFORM_MESSAGE_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <vantro/platform/export.h>
#include <vantro/platform/limits.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Flags of channel_create(). Bits not named here are accepted and have no effect. */
enum {
    /** Receiving does not change the receiver's priority. This platform always behaves so. */
    CHANNEL_FIXED_PRIORITY = 0x01,
    /** Notify the server when a waiting client must be unblocked. Never needed on this platform: an
       interrupted client gives up its exchange itself. */
    CHANNEL_UNBLOCK = 0x02,
    /** Deliver a PULSE_CODE_DISCONNECT pulse when a client's connection ends. */
    CHANNEL_DISCONNECT = 0x08
};

/** Pulse code of the disconnect pulse. Codes below zero are reserved for the system. */
enum { PULSE_CODE_DISCONNECT = -33 };

/** One pulse in a receive buffer. 16 bytes; the first 32-bit word is always zero. */
struct ipc_pulse {
    uint16_t type;    /**< 0. */
    uint16_t subtype; /**< 0. */
    int8_t code;      /**< 0 to 127 for pulses that programs send; below zero from the system. */
    uint8_t zero[3];  /**< 0. */
    int32_t value;    /**< The sender's value. */
    int32_t conn_id;  /**< In a disconnect pulse: the server-side id of the ended connection. */
};

/** Kinds of notification events. */
enum {
    IPC_EVENT_SIGNAL_THREAD = 3, /**< Deliver a signal to the thread that armed a notification. */
    IPC_EVENT_PULSE = 4          /**< Deliver a pulse on a pulse connection. */
};

/** A notification event: how to notify its owner. 16 bytes. */
struct ipc_event {
    int32_t kind;       /**< IPC_EVENT_SIGNAL_THREAD or IPC_EVENT_PULSE. */
    int32_t connection; /**< Pulse: the owner's pulse connection. Signal: the signal number. */
    int32_t value;      /**< The value to deliver, at offset 8. */
    int16_t code;       /**< Pulse: the pulse code, 0 to 127. */
    int16_t priority;   /**< Pulse: the requested priority; stored, without effect here. */
};

/** Information about a received message. For a pulse every field except channel is 0. */
struct ipc_info {
    int32_t pid;          /**< Process id of the sender, from the kernel. */
    int32_t conn_id;      /**< Server-side id of the sender's connection. */
    int32_t channel;      /**< The channel received on. */
    int32_t msg_length;   /**< Bytes placed in the receive vector. */
    int32_t total_length; /**< Bytes of the whole message; above msg_length if it did not fit. */
};

/** A client's credentials, which the kernel recorded when the connection was made. */
struct ipc_credentials {
    int32_t pid;                            /**< Process id. */
    uint32_t uid;                           /**< Effective user id. */
    uint32_t gid;                           /**< Effective group id. */
    int32_t group_count;                    /**< Entries in use of groups. */
    uint32_t groups[IPC_CREDENTIAL_GROUPS]; /**< Supplementary; there may be more. */
};

/**
 * Makes a channel owned by the calling process. Does not block.
 * @param flags CHANNEL_* bits.
 * @return the channel, or -1: EMFILE, ENFILE, ENOMEM.
 */
VANTRO_PLATFORM_API int channel_create(unsigned flags);

/**
 * Destroys a channel: its names are removed, its clients' exchanges fail with ECONNRESET, and
 * threads that receive on it return -1 with EBADF. Does not block.
 * @param channel from channel_create().
 * @return 0, or -1: EBADF if there is no such channel.
 */
VANTRO_PLATFORM_API int channel_destroy(int channel);

/**
 * Makes messages wake a thread of the channel on the processor on which the client runs, so that no
 * other processor has to be woken. For a channel on which several threads receive. The first
 * receiving thread runs anywhere; each further thread takes a processor of its affinity mask that
 * has no thread yet, and is confined to it from its first receive on; the remaining threads run
 * anywhere. So a service that hands over has two threads more than there are processors. A thread
 * gets its mask back when it ends, or receives on another channel; a child of fork has the mask
 * from the start. Threads, and programs that a handler starts without fork(), inherit the
 * confinement; channel_free_processor() prevents that.
 *
 * Call it once, before the channel has names or pulse connections, and before a thread receives on
 * it. Does not block.
 * @param channel from channel_create().
 * @return 0, also if it was called before, or -1: EBADF; EBUSY if the channel has names or pulse
 *   connections; EMFILE, ENFILE, ENOMEM, ENOSPC.
 */
VANTRO_PLATFORM_API int channel_hand_over(int channel);

/**
 * If channel_hand_over() confined the calling thread to one processor, restores its affinity mask
 * until it next receives. A handler calls it before it starts threads or programs. Does not block,
 * fail or change errno; has no effect in other threads.
 */
VANTRO_PLATFORM_API void channel_free_processor(void);

/**
 * Attaches a pulse connection from the calling process to its own channel. Does not block. The
 * connection carries pulses only; sending a message on it fails with ENOTSUP. Servers do not know
 * the connection before ipc_announce_pulse().
 * @param node    0, the local node; any other value fails with ENOTSUP.
 * @param pid     the calling process's id, or 0 for it; any other value fails with ENOTSUP.
 * @param channel the channel.
 * @param index   ignored.
 * @param flags   ignored.
 * @return the pulse connection, or -1: EBADF, ENOTSUP, EMFILE, ENFILE, ENOMEM.
 */
VANTRO_PLATFORM_API int connect_attach(uint32_t node, int32_t pid, int channel, unsigned index,
                                       int flags);

/**
 * Releases a pulse connection made by connect_attach(); servers then deliver nothing to it. Or, in
 * a server, releases a connection id whose disconnect pulse was received: until then that id is not
 * reused for another client. If the connection id is still connected, disconnects that client. Does
 * not block.
 * @param connection from connect_attach(), or the `conn_id` of a disconnect pulse.
 * @return 0, or -1: EBADF.
 */
VANTRO_PLATFORM_API int connect_detach(int connection);

/**
 * Sends a pulse to the channel of a pulse connection of this process. Does not block: at least
 * IPC_PULSE_CAPACITY undelivered pulses fit; beyond that it fails with EAGAIN.
 * @param connection from connect_attach().
 * @param priority   stored, without effect here.
 * @param code       0 to 127; any other value fails with EINVAL.
 * @param value      any.
 * @return 0, or -1: EBADF, EINVAL, EAGAIN.
 */
VANTRO_PLATFORM_API int pulse_send(int connection, int priority, int code, int32_t value);

/**
 * Returns the credentials of a connection's client. Does not block.
 * @param conn_id     the server-side id, from ipc_info.
 * @param credentials filled on success, else untouched.
 * @param max_groups  most supplementary groups to return, 0 to IPC_CREDENTIAL_GROUPS.
 * @return 0, or -1: EBADF for an unknown id, EACCES if the kernel stated no credentials.
 */
VANTRO_PLATFORM_API int connect_client_info(int conn_id, struct ipc_credentials *credentials,
                                            int max_groups);

/**
 * Sends one message and blocks until it is answered. The message is gathered from `send`, the
 * reply data is scattered into `reply`; a reply longer than `reply` is cut to it. An exchange is
 * not a cancellation point. Vectors of up to IPC_STACK_PARTS parts need no heap allocation.
 * @param connection  from platform_open() or global_name_open().
 * @param send        parts to send; may be NULL if send_count is 0.
 * @param send_count  0 or more.
 * @param reply       parts to fill; may be NULL if reply_count is 0.
 * @param reply_count 0 or more.
 * @return the reply status (0 or positive), or -1: the server's error number for an error reply;
 *   ECONNRESET if the server is gone, at once, now and at every later call; EINTR if a signal
 *   handler installed without SA_RESTART ran: that exchange is given up and its answer dropped, and
 *   the connection stays usable; EBADF for no such connection, and after fork; EMFILE if there was
 *   no free descriptor here for a large reply, or in the server for a large message; EINVAL for
 *   vectors beyond the host's IOV_MAX; EMSGSIZE above IPC_MESSAGE_MAX; ENOMEM; EAGAIN if the
 *   connection has no lane left after an interruption, and the server has no descriptor for another
 *   one.
 */
VANTRO_PLATFORM_API int ipc_send(int connection, const struct iovec *send, int send_count,
                                 const struct iovec *reply, int reply_count);

/**
 * ipc_send() that also returns the length of the received reply data.
 * @param connection, send, send_count, reply, reply_count as for ipc_send().
 * @param received receives the number of bytes placed in `reply`, in order; the rest of `reply` is
 *   unchanged. 0 if the call fails.
 * @return as ipc_send().
 */
VANTRO_PLATFORM_API int ipc_send_counted(int connection, const struct iovec *send, int send_count,
                                         const struct iovec *reply, int reply_count,
                                         size_t *received);

/**
 * ipc_send_counted() for an answer that the server sends only once. If the reply may be a large
 * one, a descriptor is reserved before anything is sent and until the reply has arrived, so that
 * EMFILE is returned before the server gets the request.
 * @param connection, send, send_count, reply, reply_count as for ipc_send().
 * @param received as for ipc_send_counted().
 * @return as ipc_send().
 */
VANTRO_PLATFORM_API int ipc_fetch(int connection, const struct iovec *send, int send_count,
                                  const struct iovec *reply, int reply_count, size_t *received);

/**
 * Allows the server of a connection to deliver events to one pulse connection of this process; call
 * it before sending the message that names the pulse connection. Blocks until the server has
 * registered it. This server cannot affect the events of other servers. May be called again for the
 * same two connections, with no effect.
 * @param connection       as for ipc_send().
 * @param pulse_connection from connect_attach().
 * @return 0, or -1: EBADF for either; EAGAIN if the server already delivers to
 *   IPC_PULSE_CONNECTIONS_MAX existing pulse connections of this connection, or has no descriptor
 *   for another one; ECONNRESET, EINTR, EMFILE, ENOMEM, ENOSPC.
 */
VANTRO_PLATFORM_API int ipc_announce_pulse(int connection, int pulse_connection);

/**
 * Limits every later wait for the server of a connection, also the wait of an exchange for another
 * thread's exchange. An exchange that exceeds the limit fails with ETIMEDOUT, is given up like an
 * interrupted one, and its answer is dropped; the connection stays usable. Limited exchanges cost
 * no more than others. Does not block.
 * @param connection from platform_open() or global_name_open().
 * @param timeout_ms milliseconds, above 0; below 0: no limit, which is the default; 0 fails with
 *   EINVAL.
 * @return 0, or -1: EBADF, EINVAL.
 */
VANTRO_PLATFORM_API int ipc_set_timeout(int connection, int timeout_ms);

/**
 * Limits each wait within the calling thread's later platform_open() and global_name_open(), which
 * then fail with ETIMEDOUT. The opened connections keep that limit, as if by ipc_set_timeout().
 * @param timeout_ms milliseconds; below 0: no limit, which is the default; 0 counts as 1.
 * @return the previous limit.
 */
VANTRO_PLATFORM_API int ipc_set_open_timeout(int timeout_ms);

/**
 * Returns whether the server of a connection is alive, as far as is known here. Does not block.
 * @param connection from platform_open() or global_name_open().
 * @return 1; or 0: the server is gone, and every exchange fails with ECONNRESET from now on; or -1:
 *   EBADF, also in a child of fork.
 */
VANTRO_PLATFORM_API int ipc_connected(int connection);

/**
 * Allows or forbids threads of this process to look for an arriving message or answer before they
 * sleep. It is allowed by default. If a client and a server on two processors exchange messages in
 * quick succession, each of them watches a word in memory that the other changes, for up to 50 us,
 * instead of sleeping and being woken; a look needs no system call, and looks without success take
 * at most a fiftieth of a thread's time. A thread does not look if other threads want its
 * processor, if it runs under a real-time policy, or if its peer is on the same processor. Does not
 * block, fail or change errno.
 * @param allowed 0: threads sleep at once, from their next exchange or receive on; not 0: looking
 *   is allowed.
 */
VANTRO_PLATFORM_API void ipc_allow_looking(int allowed);

/**
 * ipc_send() with one buffer for each direction.
 * @param connection from platform_open() or global_name_open().
 * @param message, length the message, and its number of bytes.
 * @param reply, reply_length room for the reply, in bytes.
 * @return as ipc_send().
 */
VANTRO_PLATFORM_API int ipc_send_simple(int connection, const void *message, size_t length,
                                        void *reply, size_t reply_length);

/**
 * Blocks for the next message or pulse on a channel. A message is scattered into `parts`; the part
 * that does not fit can be read with ipc_read() until the reply. A pulse is delivered as an
 * ipc_pulse at the start of `parts`, which must have room for at least 16 bytes. Several threads
 * may receive on one channel; each message and pulse goes to exactly one. The wait is a
 * cancellation point, the only one of these operations: another thread gets the message or pulse of
 * a cancelled thread.
 * @param channel from channel_create().
 * @param parts, count the parts to fill.
 * @param info filled for messages and pulses alike; may be NULL.
 * @return a receive id above 0 for a message, 0 for a pulse, -1: EBADF (no such channel, or it
 *   was destroyed), EINTR (a signal handler ran), EINVAL (vectors beyond the host's IOV_MAX).
 */
VANTRO_PLATFORM_API int ipc_receive(int channel, const struct iovec *parts, int count,
                                    struct ipc_info *info);

/**
 * Blocks for the next pulse on a channel. Messages that arrive meanwhile are refused with ENOSYS.
 * @param channel from channel_create().
 * @param pulse   at least 16 bytes, filled with an ipc_pulse.
 * @param size    bytes at `pulse`; below 16 fails with EINVAL.
 * @param info    as for ipc_receive().
 * @return 0, or -1 as ipc_receive().
 */
VANTRO_PLATFORM_API int ipc_receive_pulse(int channel, void *pulse, size_t size,
                                          struct ipc_info *info);

/**
 * Answers a message. Never blocks: a client that does not receive its answer loses its connection.
 * A receive id is valid for one answer, from any thread, also after that thread received again.
 * @param receive_id from ipc_receive().
 * @param status 0 or more: the result of the client's ipc_send().
 * @param data, length the reply, and its number of bytes; copied before the call returns.
 * @return 0, or -1: ESRCH if the id is stale or invalid, or the client is gone or gave up the
 *   exchange; EINVAL for a negative status; EMSGSIZE, EMFILE, ENOMEM when a large reply could not
 *   be made, and then the message still waits for its answer.
 */
VANTRO_PLATFORM_API int ipc_reply(int receive_id, int status, const void *data, size_t length);

/**
 * ipc_reply() with the data gathered from parts. EINVAL for vectors beyond the host's IOV_MAX.
 * @param receive_id, status as for ipc_reply().
 * @param parts, count the parts of the reply, copied before the call returns.
 * @return as ipc_reply().
 */
VANTRO_PLATFORM_API int ipc_replyv(int receive_id, int status, const struct iovec *parts,
                                   int count);

/**
 * Answers a message with an error: the client's ipc_send() returns -1 with errno `error`.
 * @param receive_id from ipc_receive().
 * @param error above 0; any other value is sent as EIO.
 * @return as ipc_reply().
 */
VANTRO_PLATFORM_API int ipc_error(int receive_id, int error);

/**
 * Reads from an unanswered message that filled its receive vector: such a message is kept whole
 * until the reply. If a message ended before the end of the vector, it is not kept, since the
 * vector has all of it, and 0 is returned. Does not block.
 * @param receive_id from ipc_receive().
 * @param buffer, length the buffer to fill, and its number of bytes.
 * @param offset bytes from the start of the message.
 * @return bytes read, 0 at or after the end, or -1: ESRCH for a stale or invalid id.
 */
VANTRO_PLATFORM_API ssize_t ipc_read(int receive_id, void *buffer, size_t length, size_t offset);

/**
 * Returns whether the client of a message still waits for its answer. An interrupted client gives
 * up the exchange before it sends anything else, so if this returns 1, no later message of the
 * client has been received yet. Does not block.
 * @param receive_id from ipc_receive().
 * @return 1; or 0: answered, given up, or a stale or invalid id.
 */
VANTRO_PLATFORM_API int ipc_waiting(int receive_id);

/**
 * Delivers a pulse event to the client of a message, also after its reply, from any thread. Events
 * that the client does not receive at once are queued in this process, 16 bytes each, and follow in
 * order when the client receives, while a thread receives on the channel. Does not block.
 * @param receive_id from ipc_receive().
 * @param event its `connection` is the client's number of the pulse connection.
 * @return 0, or -1: ESRCH if the client is gone, never announced that connection or has detached
 *   it; EINVAL for an event of another kind; ENOMEM.
 */
VANTRO_PLATFORM_API int ipc_deliver_event(int receive_id, const struct ipc_event *event);

/**
 * Returns whether an event may be promised to the client of a message. A server calls it before it
 * accepts a request whose end it has to announce: so for a client that does not receive pulses, at
 * most IPC_PULSE_BACKLOG pulses and the ones promised before wait. Does not block.
 * @param receive_id, event as for ipc_deliver_event().
 * @return 0, or -1: EAGAIN if that many wait already, else as ipc_deliver_event().
 */
VANTRO_PLATFORM_API int ipc_check_event(int receive_id, const struct ipc_event *event);

/**
 * Limits for the descriptors of this process that its clients use. A connection takes one, each of
 * its lanes two, and each announced pulse connection one. Users are those of the kernel's
 * credentials.
 */
struct ipc_client_limits {
    uint32_t one_user;  /**< For the clients of one user at a time; above 0. */
    uint32_t all_users; /**< For the clients of all users together; above 0. */
    /** Descriptors that stay free for the process's own work, for every client. */
    uint32_t kept;
    /** The same for clients of users other than 0 and the process's own. */
    uint32_t kept_from_users;
    /**
     * Called when a limit first refuses something to a user since that user last had nothing; may
     * be NULL. Called in a receiving thread, without a lock held. It must not throw.
     * @param pid of the requesting process, from its credentials.
     */
    void (*refused)(int32_t pid, uint32_t uid, void *context);
    void *context; /**< Borrowed; for `refused`. */
};

/**
 * Limits the descriptors of this process that clients may use; by default there is no limit. User 0
 * and the process's own (effective) user are not counted in `one_user` and `all_users`. A
 * connection beyond a limit is refused with EAGAIN; a lane or a pulse connection beyond a limit is
 * not made, and the exchanges of that client wait for its existing lanes, or fail with EAGAIN if it
 * has none. Clients keep what they already have. Does not block.
 * @param limits copied.
 * @return 0, or -1: EINVAL if `limits` is null, or one of the first two is 0.
 */
VANTRO_PLATFORM_API int ipc_limit_clients(const struct ipc_client_limits *limits);

/**
 * Lends the calling thread for closing descriptors that clients sent, and the clients' sockets,
 * until the channel is destroyed. The close of a descriptor can wait for as long as its sender
 * wants: a lingering TCP socket, a file on a file system that the sender runs. If a thread is lent,
 * only that thread waits. Several threads may be lent: then one of them closes only the clients'
 * sockets, so that these do not accumulate while the others wait.
 *
 * While 64 descriptors wait to be closed, no more are accepted: the kernel closes all descriptors
 * that come with a message, and a message longer than IPC_INLINE_MAX fails with EMFILE.
 *
 * A service that lends no thread is still safe from lingering sockets that a client sends directly.
 * Without a lent thread, one of the service's threads can be blocked by a file whose file system
 * waits at close, and by a socket in the queue of another sent socket. Also with a lent thread, a
 * thread can be blocked by a descriptor that the kernel has to close itself, inside a receive,
 * because 64 descriptors wait, or because the process has no free descriptor number; this is one
 * reason to keep some free. A thread that waits for a file system cannot be ended, not even with
 * its process: the process's work and its names end, and its entry in the process list stays until
 * the file system answers or is aborted.
 * @param channel from channel_create().
 * @return 0 once the channel is destroyed, or -1: EBADF.
 */
VANTRO_PLATFORM_API int ipc_lend_closing_thread(int channel);

#ifdef __cplusplus
}
#endif

#endif
