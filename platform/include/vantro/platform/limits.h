/**
 * @file
 * Every size and limit of the platform, with its reason. Each quantity that a peer controls is
 * checked against one of these before it is used.
 */
#ifndef VANTRO_PLATFORM_LIMITS_H
#define VANTRO_PLATFORM_LIMITS_H

/** Supplementary groups in one credentials record: as many as the check line of a service needs. */
#define IPC_CREDENTIAL_GROUPS 8

/** Parts of a vector that are kept on the stack; longer vectors cost one allocation. */
#define IPC_STACK_PARTS 32

/** Messages and replies up to this many bytes are sent in the socket; longer ones in a sealed
 * memory file beside it. Fits the default socket buffer of every supported host. */
#define IPC_INLINE_MAX (128 * 1024)

/** Longest message or reply: 1 GiB minus a page, so that a length easily fits an int. */
#define IPC_MESSAGE_MAX ((1 << 30) - 4096)

/** Lanes of one connection: exchanges of one client at a time. Further threads wait. */
#define IPC_LANES_MAX 64

/** Pulse connections of one client to which a server delivers; each needs a descriptor in the
 * server. */
#define IPC_PULSE_CONNECTIONS_MAX 8

/** Least number of pulses of one sender that fit a channel: beyond that a program gets EAGAIN, and
 * a server's pulses wait in the server. */
#define IPC_PULSE_CAPACITY 256

/** Pulses that may wait in a server for one pulse connection of a client before ipc_check_event()
 * returns EAGAIN: as many as a busy client has requests in progress, and little memory. */
#define IPC_PULSE_BACKLOG 4096

/** Clients of one process: as many as a receive id can distinguish. */
#define IPC_CONNECTIONS_MAX 65535

/** Longest part of a name or path, like on the host's file systems. */
#define PLATFORM_NAME_MAX 255

/** Longest name or path. */
#define PLATFORM_PATH_MAX 1023

/** Message buffer of a path framework context: one line to a device fits easily. */
#define PATH_MESSAGE_MAX 8192

/** Longest change text of an object: a reader's buffer of 32 KiB, minus the NUL that the reader
 * appends. */
#define OBJECT_CHANGE_MAX 32767

/** All objects of one publisher together: a snapshot of them fits the ring several times. */
#define OBJECT_TOTAL_MAX (256 * 1024)

/** Longest name of an object: with "?delta" appended it is still one part of a path. */
#define OBJECT_NAME_MAX 249

/** Deepest nesting of objects and arrays in a JSON text: parsing recurses. */
#define KIVO_JSON_DEPTH_MAX 64

/** Longest line of the log, including its NUL. */
#define SYSTEM_LOG_LINE 2048

#endif
