/**
 * @file
 * Objects, by which a service publishes its state and applications follow it.
 *
 * An object is a named set of attributes, each a text under a name. One publisher owns a directory
 * of objects, for example "/kivo/services/vantro/kitchen"; any number of readers follow them. A
 * reader gets the changes in the order in which they were published, and does not burden the
 * publisher: the texts go into a ring in shared memory that readers map read-only.
 *
 * Guarantees for publishers
 *  - A change is whole or absent, for every reader, also when the process dies in the middle of it.
 *  - Publishing never waits for a reader, and its cost does not depend on the number of open
 *    readers that do not wait: copies of the text, and one system call that wakes waiting readers.
 *    Whenever eight times a snapshot's bytes were published, a snapshot of all objects is written.
 *  - A failed call has published nothing and changed nothing.
 *  - Any thread may call; calls on one publisher are serialised.
 *
 * Guarantees for readers
 *  - The first reads of a reader return each existing object completely, in the order in which the
 *    objects were last published, one object in each read, as "@name" and its attributes. From then
 *    on each read returns the next change of one object.
 *  - If a reader is so slow that the ring has overwritten changes, it gets each existing object
 *    again, as "#@name" (truncated) and all its attributes, and "-@name" (deleted) for each that is
 *    gone; an object that was deleted and created again meanwhile comes as "-@name" and then as
 *    "+@name" (for publishers with more than 3,600 objects, only the newest ones). No change is
 *    lost silently.
 *  - If the publisher has closed, or its death is known, the reader gets the remaining changes and
 *    then -1 with ESTALE. To follow the next publisher, it closes and opens again. A death is known
 *    once notify_arm() or the end of a wait found it, or a new publisher appeared: a read alone
 *    does not check.
 *  - The bytes in the ring are not trusted: they are copied, then checked, then used. Corrupt bytes
 *    cause -1 with EBADMSG, permanently, and never a wrong access. A file that its owner shortens
 *    while it is mapped is outside this guarantee.
 *
 * Reading
 *  int d = platform_open("/kivo/services/vantro/kitchen/state?delta", O_RDONLY);  one object
 *  int d = platform_open("/kivo/services/vantro/kitchen/.all?delta", O_RDONLY);   every object
 *    returns a real, close-on-exec descriptor, or -1: ENOENT (no such directory, or nothing was
 *    published there yet), ECONNREFUSED (the publisher has died and left its ring), EBADMSG (the
 *    ring is too short or corrupt), EACCES (not opened O_RDONLY, or the publisher does not admit
 *    this user), EINVAL (an option other than "delta", or an invalid object name), ENAMETOOLONG,
 *    EMFILE, ENFILE, ENOMEM. The object itself need not exist yet.
 *  ssize_t n = platform_read(d, buffer, 32767);
 *    returns one change text (change.h) without a NUL after it, or 0 if there is nothing new, which
 *    needs no system call. It never blocks. -1: EMSGSIZE if the text does not fit the buffer (it
 *    stays for the next read; 32767 bytes always suffice, and a length of 0 only checks for a
 *    text), ESTALE, EBADMSG, ENOMEM.
 *  platform_close(d);
 *    no other thread may be in a call on d.
 *  notify_arm(d, ...) (notify.h) notifies when there is something to read.
 * Several threads may read different descriptors, or the same one. After fork the child's copies
 * are closed: every use in the child, except closing the number, fails with EBADF, and so does
 * every use of a publisher.
 */
#ifndef VANTRO_PLATFORM_OBJECTS_H
#define VANTRO_PLATFORM_OBJECTS_H

#include <stddef.h>
#include <stdint.h>

#include <vantro/platform/change.h>
#include <vantro/platform/export.h>
#include <vantro/platform/limits.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A publisher: opaque, made by object_publisher_open(). */
struct object_publisher;

/** Who may read a publisher's objects, in the form of a file's permissions. */
struct object_readers {
    uint32_t uid;  /**< The user for the owner's bit, or OBJECT_READERS_OWN. */
    uint32_t gid;  /**< The group for the group's bit, or OBJECT_READERS_OWN. */
    uint32_t mode; /**< The bits 0400, 0040 and 0004. Others are ignored: readers cannot write. */
};

/** Stands for the effective user or group of the publisher's process. */
#define OBJECT_READERS_OWN UINT32_MAX

/** One attribute of a change. */
struct object_attribute {
    const char *name;            /**< Any text that is not empty; need not outlive the call. */
    enum kivo_encoding encoding; /**< The type of the value. */
    const char *value; /**< The text to set; NULL deletes the attribute. A number, boolean or JSON
                          value is not checked. */
};

/** Flags of object_publish(). */
enum {
    /** The object first loses all its attributes: afterwards it has only those that are set. */
    OBJECT_TRUNCATE = 1
};

/**
 * Becomes the publisher of a directory, which is made if it is missing, together with the
 * directories above it. A directory has one publisher at a time; a lock, which ends with the
 * process, ensures this. If an earlier publisher died, its ring is retired first, which notifies
 * its readers. Starts without any object. Does not block.
 * @param directory for example "/kivo/services/vantro/kitchen".
 * @return the publisher, to be released with object_publisher_close(), or NULL: EADDRINUSE (a live
 *   process publishes there, or this one), ENOENT (not a path below "/kivo/", ".." or an empty part
 *   in it), ENAMETOOLONG, EACCES, EMFILE, ENFILE, ENOMEM, ENOSPC (no room for the ring).
 */
VANTRO_PLATFORM_API struct object_publisher *object_publisher_open(const char *directory);

/**
 * object_publisher_open() for some readers only: others get -1 with EACCES from platform_open().
 * The publisher's own user, and user 0, may always read. Readers that have an earlier publisher's
 * ring open can still read it.
 * @param directory as for object_publisher_open().
 * @param readers not NULL, else EINVAL; copied.
 * @return as object_publisher_open(); also EOPNOTSUPP if the bits of another user or group differ
 *   from those of others and the runtime directory's file system has no access control lists.
 */
VANTRO_PLATFORM_API struct object_publisher *object_publisher_open_for(
    const char *directory, const struct object_readers *readers);

/**
 * Ends publishing: readers get the unread changes and then ESTALE, waiting readers wake up, and the
 * directory is removed. No other thread may be in a call on the publisher. NULL does nothing. In a
 * child of fork it frees the memory and does not touch the parent's directory.
 * @param publisher from object_publisher_open(), or NULL.
 */
VANTRO_PLATFORM_API void object_publisher_close(struct object_publisher *publisher);

/**
 * Publishes one change of one object: attributes set and deleted together, as one change text. An
 * object that does not exist is created. Values are not compared: setting an attribute to its
 * present value is a change too. If nothing is set or deleted, the change is only the object's
 * line. Deleting an attribute that the object does not have is also published.
 * @param publisher from object_publisher_open().
 * @param object    the object's name: [A-Za-z0-9._-]+, at most OBJECT_NAME_MAX, not ".all".
 * @param flags     0 or OBJECT_TRUNCATE.
 * @param attributes, count the changes, in the order for readers; if two attributes have the same
 *   name, the later one counts. May be NULL if count is 0.
 * @return 0, or -1: EINVAL (an invalid name, an unknown encoding or flag), EMSGSIZE (the change, or
 *   the whole object after it, exceeds OBJECT_CHANGE_MAX bytes), ENOSPC (all objects together would
 *   exceed OBJECT_TOTAL_MAX), ENOMEM, EBADF (in a child of fork).
 */
VANTRO_PLATFORM_API int object_publish(struct object_publisher *publisher, const char *object,
                                       unsigned flags, const struct object_attribute *attributes,
                                       size_t count);

/**
 * Holds back the bell that wakes waiting readers, until object_release_bell(). Changes that any
 * thread publishes meanwhile can be read at once, but waiting readers are not woken. For a service
 * whose answer to a client should not wait until its readers are woken, and for several changes
 * that need only one wake-up. Any number of threads may hold the bell at the same time, each as
 * long as an answer takes. NULL does nothing. Does not block.
 * @param publisher from object_publisher_open(), or NULL.
 */
VANTRO_PLATFORM_API void object_hold_bell(struct object_publisher *publisher);

/**
 * Ends one object_hold_bell(), and wakes waiting readers if there are changes for which they were
 * not woken, also changes of other threads that still hold the bell. At most one system call. Keeps
 * errno.
 * @param publisher from object_publisher_open(), or NULL.
 */
VANTRO_PLATFORM_API void object_release_bell(struct object_publisher *publisher);

/**
 * Deletes an object.
 * @param publisher, object as for object_publish().
 * @return 0, or -1: ENOENT (there is no object of that name; nothing is published), EINVAL, EBADF,
 *   ENOMEM.
 */
VANTRO_PLATFORM_API int object_delete(struct object_publisher *publisher, const char *object);

#ifdef __cplusplus
}
#endif

#endif
