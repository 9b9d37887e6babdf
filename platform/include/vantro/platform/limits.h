/**
 * @file
 * Every size and limit of the platform, with its reason. A quantity that a peer controls is
 * checked against one of these before it is used.
 */
#ifndef VANTRO_PLATFORM_LIMITS_H
#define VANTRO_PLATFORM_LIMITS_H

/** Supplementary groups in one credentials record: what the check line of a service needs. */
#define IPC_CREDENTIAL_GROUPS 8

/** Parts of a vector that are kept on the stack; longer vectors cost one allocation. */
#define IPC_STACK_PARTS 32

/** Messages and replies up to this many bytes travel in the socket; longer ones in a sealed
 *  memory file beside it. Fits the default socket buffer of every supported host. */
#define IPC_INLINE_MAX (128 * 1024)

/** Longest message or reply: 1 GiB less a page, so that a length fits an int with room to spare. */
#define IPC_MESSAGE_MAX ((1 << 30) - 4096)

/** Lanes of one connection: exchanges of one client that run at once. More threads wait. */
#define IPC_LANES_MAX 64

/** Pulse connections of one client that a server delivers to; each costs it a descriptor. */
#define IPC_PULSE_CONNECTIONS_MAX 8

/** Pulses of one sender that fit a channel, at least: beyond that a program is told EAGAIN, and a
 *  server's wait at the server. */
#define IPC_PULSE_CAPACITY 256

/** Pulses that may wait at a server for one pulse connection of a client before ipc_check_event()
 *  says EAGAIN: as many as a busy client has requests under way, and little memory. */
#define IPC_PULSE_BACKLOG 4096

/** Clients of one process: as many as a receive id has room to tell apart. */
#define IPC_CONNECTIONS_MAX 65535

/** Longest part of a name or path, as on the host's file systems. */
#define PLATFORM_NAME_MAX 255

/** Longest name or path. */
#define PLATFORM_PATH_MAX 1023

/** Message buffer of a path framework context: one line to a device, with room to spare. */
#define PATH_MESSAGE_MAX 8192

/** Longest change text of an object: a reader's 32 KiB buffer less the NUL that it puts after it.
 */
#define OBJECT_CHANGE_MAX 32767

/** All objects of one publisher in full: a snapshot of them fits the ring several times. */
#define OBJECT_TOTAL_MAX (256 * 1024)

/** Longest name of an object: with "?delta" after it still one part of a path. */
#define OBJECT_NAME_MAX 249

/** How deep objects and arrays of a JSON text may lie in each other: parsing recurses. */
#define KIVO_JSON_DEPTH_MAX 64

/** Longest line of the log, its NUL included. */
#define SYSTEM_LOG_LINE 2048

#endif
