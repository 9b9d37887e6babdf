/**
 * @file
 * Message passing: synchronous exchanges between processes, and pulses.
 *
 * A server makes a channel and receives on it, in as many threads as it likes. A client holds a
 * connection to a channel and sends on it: the call gathers one message from a vector, blocks
 * until the server replies, scatters the reply into a second vector and returns the reply status.
 * A pulse is a fixed 16-byte record that is delivered to a channel and answered by nobody.
 *
 * What every operation here promises
 *  - Failure is -1 with errno set, unless the operation's own text says otherwise. The error
 *    numbers are the host's.
 *  - Any thread may call any operation. Several threads may exchange on one connection at once,
 *    each blocked in its own send; no lock is held across an exchange.
 *  - No operation raises SIGPIPE, leaks a descriptor into a program that is executed, or changes
 *    the caller's signal mask.
 *  - Nothing that a peer does blocks, crashes or grows this process beyond the limits named in
 *    limits.h; ipc_lend_closing_thread() says what can still block. A peer's misconduct costs that
 *    peer its connection and nobody else anything.
 *  - After fork the connections of the parent are not the child's: every use of one there fails
 *    with EBADF.
 *
 * Numbers. Connections, channels, pulse connections and server-side connection ids are positive
 * ints (or a real descriptor, where platform_open made the connection). The kinds have disjoint
 * ranges, so a number of one kind is never mistaken for one of another.
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
    /** Receiving does not change the receiver's priority. Always so on this platform. */
    CHANNEL_FIXED_PRIORITY = 0x01,
    /** Tell the server when a waiting client asks to be unblocked. Never needed on this platform:
     *  an interrupted client gives its exchange up by itself. */
    CHANNEL_UNBLOCK = 0x02,
    /** Deliver a PULSE_CODE_DISCONNECT pulse when a client's connection goes away. */
    CHANNEL_DISCONNECT = 0x08
};

/** Pulse code of the disconnect pulse. Codes below zero are the system's own. */
enum { PULSE_CODE_DISCONNECT = -33 };

/** One pulse, as it lies in a receive buffer. 16 bytes; its first 32-bit word is always zero. */
struct ipc_pulse {
    uint16_t type;    /**< 0. */
    uint16_t subtype; /**< 0. */
    int8_t code;      /**< 0 to 127 for pulses that programs send; below zero from the system. */
    uint8_t zero[3];  /**< 0. */
    int32_t value;    /**< The sender's value. */
    int32_t conn_id;  /**< Of a disconnect pulse: the server-side id of the connection that went. */
};

/** What a notification does. */
enum {
    IPC_EVENT_SIGNAL_THREAD = 3, /**< Deliver a signal to the thread that armed a notification. */
    IPC_EVENT_PULSE = 4          /**< Deliver a pulse on a pulse connection. */
};

/** A notification event: how its owner wants to be told. 16 bytes. */
struct ipc_event {
    int32_t kind;       /**< IPC_EVENT_SIGNAL_THREAD or IPC_EVENT_PULSE. */
    int32_t connection; /**< Pulse: the owner's pulse connection. Signal: the signal number. */
    int32_t value;      /**< The value to deliver, at offset 8. */
    int16_t code;       /**< Pulse: the pulse code, 0 to 127. */
    int16_t priority;   /**< Pulse: the priority asked for; carried, without effect here. */
};

/** What a receive says about the message that it returned. For a pulse every field but channel is
 * 0. */
struct ipc_info {
    int32_t pid;          /**< Process id of the sender, as the kernel vouches for it. */
    int32_t conn_id;      /**< Server-side id of the sender's connection. */
    int32_t channel;      /**< The channel received on. */
    int32_t msg_length;   /**< Bytes placed in the receive vector. */
    int32_t total_length; /**< Bytes of the whole message; above msg_length if it did not fit. */
};

/** A client's credentials: the kernel's word, taken when the connection was made. */
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
 * Destroys a channel: its names vanish, its clients' exchanges end with ECONNRESET, and threads
 * that receive on it return -1 with EBADF. Does not block.
 * @param channel from channel_create().
 * @return 0, or -1: EBADF when there is no such channel.
 */
VANTRO_PLATFORM_API int channel_destroy(int channel);

/**
 * Hands messages over where they are sent: wakes a thread of the channel on the processor that the
 * client runs on, so that no other processor has to be woken. For a channel on which several
 * threads receive. The first thread that receives runs anywhere; each further one takes a processor
 * of its own affinity mask that has none yet, and is confined to it from its first receive on; the
 * rest run anywhere. So a service that hands over has two threads more than there are processors.
 * A thread gets its mask back when it ends, or receives on another channel, and a child of fork has
 * it from the start. What else a handler starts inherits the confinement: threads, and programs
 * that are started without fork(); channel_free_processor() prevents that.
 *
 * To be called once, before the channel has names or pulse connections, and before a thread
 * receives on it. Does not block.
 * @param channel from channel_create().
 * @return 0, also where it was called before, or -1: EBADF; EBUSY if the channel has names or
 *   pulse connections; EMFILE, ENFILE, ENOMEM, ENOSPC.
 */
VANTRO_PLATFORM_API int channel_hand_over(int channel);

/**
 * Gives the calling thread the processors back that it might use before channel_hand_over()
 * confined it to one, until it receives next. To be called before a handler starts threads or
 * programs. Does not block, fail or change errno; has no effect in other threads.
 */
VANTRO_PLATFORM_API void channel_free_processor(void);

/**
 * Attaches a pulse connection from the calling process to a channel of its own. Does not block.
 * The connection carries pulses only; sending a message on it fails with ENOTSUP. No server knows
 * of it before ipc_announce_pulse().
 * @param node    0, the local node; anything else gives ENOTSUP.
 * @param pid     the calling process's id, or 0 for it; anything else gives ENOTSUP.
 * @param channel the channel.
 * @param index   ignored.
 * @param flags   ignored.
 * @return the pulse connection, or -1: EBADF, ENOTSUP, EMFILE, ENFILE, ENOMEM.
 */
VANTRO_PLATFORM_API int connect_attach(uint32_t node, int32_t pid, int channel, unsigned index,
                                       int flags);

/**
 * Releases a pulse connection made by connect_attach(); servers then deliver nothing to it. Or, at
 * a server, releases a connection id whose disconnect pulse was received: until then that id is not
 * given to another client. On a connection id that is still connected, it disconnects that client.
 * Does not block.
 * @param connection from connect_attach(), or the `conn_id` of a disconnect pulse.
 * @return 0, or -1: EBADF.
 */
VANTRO_PLATFORM_API int connect_detach(int connection);

/**
 * Sends a pulse to the channel behind a pulse connection of this process. Does not block: at
 * least IPC_PULSE_CAPACITY undelivered pulses fit, beyond that EAGAIN.
 * @param connection from connect_attach().
 * @param priority   carried, without effect here.
 * @param code       0 to 127; anything else gives EINVAL.
 * @param value      any.
 * @return 0, or -1: EBADF, EINVAL, EAGAIN.
 */
VANTRO_PLATFORM_API int pulse_send(int connection, int priority, int code, int32_t value);

/**
 * Tells who made a connection. Does not block.
 * @param conn_id     the server-side id, from ipc_info.
 * @param credentials filled on success, else untouched.
 * @param max_groups  how many supplementary groups are wanted, 0 to IPC_CREDENTIAL_GROUPS.
 * @return 0, or -1: EBADF for an unknown id, EACCES where the kernel gave no credentials.
 */
VANTRO_PLATFORM_API int connect_client_info(int conn_id, struct ipc_credentials *credentials,
                                            int max_groups);

/**
 * Sends one message and blocks until it is answered. The message is gathered from `send`, the
 * reply data is scattered into `reply`; a reply longer than `reply` is cut to it. An exchange is
 * no cancellation point. Up to IPC_STACK_PARTS parts a vector cost no heap.
 * @param connection  from platform_open() or global_name_open().
 * @param send        parts to send; may be NULL when send_count is 0.
 * @param send_count  0 or more.
 * @param reply       parts to fill; may be NULL when reply_count is 0.
 * @param reply_count 0 or more.
 * @return the reply status (0 or positive), or -1: the server's error number for an error reply;
 *   ECONNRESET when the server is gone, at once, now and at every later call; EINTR when a signal
 *   handler installed without SA_RESTART ran: that exchange is given up and its answer dropped,
 *   and the connection stays usable; EBADF for no such connection, and after fork; EMFILE when a
 *   large reply found no free descriptor here, or a large message none at the server; EINVAL for
 *   vectors beyond the host's IOV_MAX; EMSGSIZE above IPC_MESSAGE_MAX; ENOMEM; EAGAIN when the
 *   connection has no lane left, after an interruption, and the server no descriptor for another.
 */
VANTRO_PLATFORM_API int ipc_send(int connection, const struct iovec *send, int send_count,
                                 const struct iovec *reply, int reply_count);

/**
 * ipc_send() that also tells how much of the reply's data there really was.
 * @param connection, send, send_count, reply, reply_count as for ipc_send().
 * @param received receives how many bytes were placed in `reply`, in order; the rest of it is as it
 *   was. 0 if the call fails.
 * @return as ipc_send().
 */
VANTRO_PLATFORM_API int ipc_send_counted(int connection, const struct iovec *send, int send_count,
                                         const struct iovec *reply, int reply_count,
                                         size_t *received);

/**
 * ipc_send_counted() for an answer that the server gives only once. If the reply may be a large
 * one, a descriptor is kept free for it from before anything is sent until it has arrived, so that
 * EMFILE is given before the server is asked.
 * @param connection, send, send_count, reply, reply_count as for ipc_send().
 * @param received as for ipc_send_counted().
 * @return as ipc_send().
 */
VANTRO_PLATFORM_API int ipc_fetch(int connection, const struct iovec *send, int send_count,
                                  const struct iovec *reply, int reply_count, size_t *received);

/**
 * Lets the server behind a connection deliver events to one pulse connection of this process; to be
 * called before the message that names it is sent. Blocks until the server has taken note. What
 * other servers deliver is not touched by anything that this server does. May be called again for
 * the same two, with no effect.
 * @param connection       as for ipc_send().
 * @param pulse_connection from connect_attach().
 * @return 0, or -1: EBADF for either; EAGAIN when the server already delivers to
 *   IPC_PULSE_CONNECTIONS_MAX pulse connections of this connection that still exist, or has no
 *   descriptor for another; ECONNRESET, EINTR, EMFILE, ENOMEM, ENOSPC.
 */
VANTRO_PLATFORM_API int ipc_announce_pulse(int connection, int pulse_connection);

/**
 * Bounds every later wait for the server of a connection, also where an exchange waits for another
 * thread's. An exchange whose time is over fails with ETIMEDOUT, is given up like an interrupted
 * one, and its answer is dropped; the connection stays usable. Bounded exchanges cost no more than
 * others. Does not block.
 * @param connection from platform_open() or global_name_open().
 * @param timeout_ms milliseconds, above 0; below 0 without a limit, as at first; 0 gives EINVAL.
 * @return 0, or -1: EBADF, EINVAL.
 */
VANTRO_PLATFORM_API int ipc_set_timeout(int connection, int timeout_ms);

/**
 * Bounds each wait within the calling thread's later platform_open() and global_name_open(), which
 * then fail with ETIMEDOUT. What they open keeps that limit, as if by ipc_set_timeout().
 * @param timeout_ms milliseconds; below 0 without a limit, as at first; 0 counts as 1.
 * @return what it was before.
 */
VANTRO_PLATFORM_API int ipc_set_open_timeout(int timeout_ms);

/**
 * Tells whether the server of a connection is still there, as far as its end has arrived. Does not
 * block.
 * @param connection from platform_open() or global_name_open().
 * @return 1, or 0: every exchange fails with ECONNRESET from now on; -1: EBADF, also in a child of
 *   fork.
 */
VANTRO_PLATFORM_API int ipc_connected(int connection);

/**
 * Lets this process look, or not, whether a message or an answer is about to arrive before a thread
 * sleeps. At first it may. Where a client and a server on two processors exchange messages in quick
 * succession, each then looks for up to 50 us at a word in memory that the other changes, in place
 * of sleeping and being woken; a look costs no system call, and looks in vain take at most a
 * fiftieth of a thread's time. A thread whose processor other threads want, one that runs under a
 * real-time policy, and one whose peer is on the same processor do not look. Does not block, fail
 * or change errno.
 * @param allowed 0, and threads sleep at once, from their next exchange or receive on; or not 0.
 */
VANTRO_PLATFORM_API void ipc_allow_looking(int allowed);

/**
 * ipc_send() with one buffer each way.
 * @param connection from platform_open() or global_name_open().
 * @param message, length     what to send, in bytes.
 * @param reply, reply_length room for the reply, in bytes.
 * @return as ipc_send().
 */
VANTRO_PLATFORM_API int ipc_send_simple(int connection, const void *message, size_t length,
                                        void *reply, size_t reply_length);

/**
 * Blocks for the next message or pulse on a channel. A message is scattered into `parts`; what
 * does not fit can be had with ipc_read() until the reply. A pulse is delivered as an ipc_pulse
 * at the start of `parts`, which must take at least 16 bytes.
 * Several threads may receive on one channel; each message and pulse goes to exactly one. The wait
 * is a cancellation point, and the only one of the operations here: what a cancelled thread would
 * have received goes to another.
 * @param channel from channel_create().
 * @param parts, count what the message fills.
 * @param info filled for messages and pulses alike; may be NULL.
 * @return a receive id above 0 for a message, 0 for a pulse, -1: EBADF (no such channel, or it
 *   was destroyed), EINTR (a signal handler ran), EINVAL (vectors beyond the host's IOV_MAX).
 */
VANTRO_PLATFORM_API int ipc_receive(int channel, const struct iovec *parts, int count,
                                    struct ipc_info *info);

/**
 * Blocks for the next pulse on a channel. Messages that arrive there meanwhile are refused with
 * ENOSYS.
 * @param channel from channel_create().
 * @param pulse at least 16 bytes, filled with an ipc_pulse.
 * @param size  bytes at `pulse`; below 16 gives EINVAL.
 * @param info  as for ipc_receive().
 * @return 0, or -1 as ipc_receive().
 */
VANTRO_PLATFORM_API int ipc_receive_pulse(int channel, void *pulse, size_t size,
                                          struct ipc_info *info);

/**
 * Answers a message. Never blocks: a client that does not take its answer loses its connection.
 * A receive id is good for one answer, from any thread, also after that thread received again.
 * @param receive_id from ipc_receive().
 * @param status     0 or more: what the client's ipc_send() returns.
 * @param data, length the reply, and its bytes; copied before the call returns.
 * @return 0, or -1: ESRCH when the id is stale or invented, or the client is gone or gave the
 *   exchange up; EINVAL for a negative status; EMSGSIZE, EMFILE, ENOMEM when a large reply could
 *   not be made, and then the message still waits for its answer.
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
 * @param error above 0; anything else is sent as EIO.
 * @return as ipc_reply().
 */
VANTRO_PLATFORM_API int ipc_error(int receive_id, int error);

/**
 * Reads from a message that waits for its answer and that reached the end of its receive vector:
 * such a message is kept whole until the reply. Of a message that ended before the end of the
 * vector nothing is kept, everything is in the vector, and 0 is returned. Does not block.
 * @param receive_id from ipc_receive().
 * @param buffer, length what to fill, in bytes.
 * @param offset bytes from the start of the message.
 * @return bytes read, 0 at or after the end, or -1: ESRCH for a stale or invented id.
 */
VANTRO_PLATFORM_API ssize_t ipc_read(int receive_id, void *buffer, size_t length, size_t offset);

/**
 * Tells whether the client of a message still waits for its answer. A client that was interrupted
 * has given the exchange up before it sends anything else, so where this gives 1, nothing that the
 * client sent later has been received yet. Does not block.
 * @param receive_id from ipc_receive().
 * @return 1, or 0: answered, given up, or a stale or invented id.
 */
VANTRO_PLATFORM_API int ipc_waiting(int receive_id);

/**
 * Delivers a pulse event to the client of a message, also after its reply, from any thread. Events
 * that the client does not take at once wait here, 16 bytes each, and follow in order as it takes
 * them, while a thread receives on the channel. Does not block.
 * @param receive_id from ipc_receive().
 * @param event its connection is the client's own number of its pulse connection.
 * @return 0, or -1: ESRCH when the client is gone, never announced that connection or has detached
 *   it; EINVAL for an event of another kind; ENOMEM.
 */
VANTRO_PLATFORM_API int ipc_deliver_event(int receive_id, const struct ipc_event *event);

/**
 * Tells whether an event may be promised to the client of a message. A server asks before it
 * accepts a request whose end it is to announce: so a client that takes no pulses makes no more of
 * them wait than IPC_PULSE_BACKLOG and what was promised before. Does not block.
 * @param receive_id, event as for ipc_deliver_event().
 * @return 0, or -1: EAGAIN when so many wait already, else as ipc_deliver_event().
 */
VANTRO_PLATFORM_API int ipc_check_event(int receive_id, const struct ipc_event *event);

/**
 * What the clients of this process may take of its descriptors. A connection takes one, each of its
 * lanes two, and each pulse connection that it is told on one. Users are those of the kernel's
 * credentials.
 */
struct ipc_client_limits {
    uint32_t one_user;  /**< Of the clients of one user at once; above 0. */
    uint32_t all_users; /**< Of those of all users together; above 0. */
    /** Descriptors that stay free for the process's own work, whoever asks. */
    uint32_t kept;
    /** The same where it is another user than 0 and the process's own that asks. */
    uint32_t kept_from_users;
    /**
     * Called when a limit refuses something to a user for the first time since that user had
     * nothing, or NULL; in a thread that receives, without a lock. It must not throw.
     * @param pid of the process that asked, as its credentials say.
     */
    void (*refused)(int32_t pid, uint32_t uid, void *context);
    void *context; /**< Borrowed; for `refused`. */
};

/**
 * Limits what clients may take of this process's descriptors; at first nothing is. User 0 and the
 * process's own (effective) user are not counted in `one_user` and `all_users`. A connection that
 * goes beyond is refused with EAGAIN; a lane or a pulse connection that does is not had, and the
 * exchanges of that client wait for the lanes that it has, or fail with EAGAIN if it has none
 * left. What clients have already they keep. Does not block.
 * @param limits copied.
 * @return 0, or -1: EINVAL where it is null, or one of the first two is 0.
 */
VANTRO_PLATFORM_API int ipc_limit_clients(const struct ipc_client_limits *limits);

/**
 * Lends the calling thread for closing what clients sent, and their sockets, until the channel is
 * destroyed. The close of a descriptor can wait for as long as its sender wants: a lingering TCP
 * socket, a file on a file system that the sender runs. With a thread lent, only that thread waits.
 * Several may be lent.
 *
 * A service that lends none is still safe from lingering sockets that a client sends to it as they
 * are. What can hold up one of its threads then: a file whose file system waits at its close, and
 * a socket that lies in the queue of another one that was sent. What can hold up a thread with or
 * without one lent: a descriptor that the kernel has to close itself, inside a receive, because
 * the process has no number free for it, which is one reason to keep some free.
 * @param channel from channel_create().
 * @return 0 once the channel is destroyed, or -1: EBADF.
 */
VANTRO_PLATFORM_API int ipc_lend_closing_thread(int channel);

#ifdef __cplusplus
}
#endif

#endif
