/**
 * @file
 * Objects: how a service publishes its state, and how applications follow it.
 *
 * An object is a named set of attributes, each a text under a name. One publisher owns a directory
 * of objects, for example "/kivo/services/vantro/kitchen"; any number of readers follow them. A
 * reader gets the changes in the order in which they were published, and costs the publisher
 * nothing: the texts go into a ring in shared memory that readers map read-only.
 *
 * What every publisher can rely on
 *  - A change is whole or absent, for every reader, also when the process dies in the middle of it.
 *  - Publishing never waits for a reader, and costs the same whatever the number of readers that
 *    are open and do not wait: copies of the text, and one system call that wakes those who do.
 *    Whenever eight times a snapshot's bytes were published, a snapshot of all objects is written.
 *  - A call that fails has published nothing and changed nothing.
 *  - Any thread may call; the calls on one publisher are taken one after the other.
 *
 * What every reader can rely on
 *  - The first reads of a reader give each object that exists, in full and in the order in which
 *    the objects were last published, one a read, as "@name" and its attributes. From then on each
 *    read gives the next change of one object.
 *  - A reader so slow that the ring went round is given each existing object again, as "#@name"
 *    (truncated) and all its attributes, and "-@name" (deleted) for each that is gone; one that was
 *    deleted and created again meanwhile as "-@name" and then as "+@name" (of publishers with more
 *    than 3,600 objects only the newest). Nothing is silently lost.
 *  - When the publisher has closed, or has died and is known to be gone, the reader gets what was
 *    published and then -1 with ESTALE. It closes and opens again to follow the next publisher. A
 *    death is known once notify_arm() or the end of a wait found it, or a successor came: a read
 *    alone does not look.
 *  - The bytes in the ring are not trusted: they are copied, then checked, then used. Noise gives
 *    -1 with EBADMSG, for good, and never a wrong access. A file that its owner shortens while it
 *    is mapped is outside this promise.
 *
 * Reading
 *  int d = platform_open("/kivo/services/vantro/kitchen/state?delta", O_RDONLY);  one object
 *  int d = platform_open("/kivo/services/vantro/kitchen/.all?delta", O_RDONLY);   every object
 *    gives a real, close-on-exec descriptor, or -1: ENOENT (no such directory, or nobody published
 *    there yet), ECONNREFUSED (the publisher has died and left its ring), EBADMSG (what lies there
 *    is short or corrupt), EACCES (not opened O_RDONLY, or the publisher does not let this user
 *    read), EINVAL (an option other than "delta", or an object name that cannot be),
 *    ENAMETOOLONG, EMFILE, ENFILE, ENOMEM. The object itself need not exist yet.
 *  ssize_t n = platform_read(d, buffer, 32767);
 *    gives one change text (change.h) without a NUL after it, or 0 when there is nothing new, which
 *    costs no system call. It never blocks. -1: EMSGSIZE when the text does not fit the buffer (it
 *    stays for the next read; 32767 bytes always suffice, and a length of 0 only asks whether there
 *    is one), ESTALE, EBADMSG, ENOMEM.
 *  platform_close(d);
 *    no other thread may be in a call on d.
 *  notify_arm(d, ...) (notify.h) tells when there is something to read.
 * Several threads may read different descriptors, or one. After fork the child's copies are closed:
 * every use of one there, but to close its number, fails with EBADF, and so does every use of a
 * publisher.
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

/** Who may read what a publisher publishes, in the way in which a file says it. */
struct object_readers {
    uint32_t uid;  /**< The user whom the owner's bit is for, or OBJECT_READERS_OWN. */
    uint32_t gid;  /**< The group that the group's bit is for, or OBJECT_READERS_OWN. */
    uint32_t mode; /**< The bits 0400, 0040 and 0004. Others are ignored: nobody may write. */
};

/** In place of a user or group: the effective one of the publisher's process. */
#define OBJECT_READERS_OWN UINT32_MAX

/** One attribute of a change. */
struct object_attribute {
    const char *name;            /**< Any text but an empty one; need not outlive the call. */
    enum kivo_encoding encoding; /**< What the value is. */
    const char *value;           /**< The text to set; NULL deletes the attribute. A number,
                                      boolean or JSON value is carried as it stands. */
};

/** Flags of object_publish(). */
enum {
    /** The object first loses all its attributes: what is set is all that it then has. */
    OBJECT_TRUNCATE = 1
};

/**
 * Becomes the publisher of a directory, which is made if it is missing, and so are those above
 * it. There is one at a time; it is told by a lock that ends with the process. Where an earlier
 * one died, its ring is retired first: its readers are told. Starts without any object. Does not
 * block.
 * @param directory for example "/kivo/services/vantro/kitchen".
 * @return the publisher, to be released with object_publisher_close(), or NULL: EADDRINUSE (a live
 *   process publishes there, or this one), ENOENT (not a path below "/kivo/", ".." or an empty part
 *   in it), ENAMETOOLONG, EACCES, EMFILE, ENFILE, ENOMEM, ENOSPC (no room for the ring).
 */
VANTRO_PLATFORM_API struct object_publisher *object_publisher_open(const char *directory);

/**
 * object_publisher_open() for some readers only: others get -1 with EACCES from platform_open().
 * The publisher's own user, and user 0, may always read. What an earlier publisher left stays
 * readable by those who have it open.
 * @param directory as for object_publisher_open().
 * @param readers not NULL, else EINVAL; copied.
 * @return as object_publisher_open(); also EOPNOTSUPP where the bits of another user or group are
 *   to differ from the others' and the file system of the runtime directory has no access control
 *   lists.
 */
VANTRO_PLATFORM_API struct object_publisher *object_publisher_open_for(
    const char *directory, const struct object_readers *readers);

/**
 * Ends publishing: readers get what they have not read and then ESTALE, those that wait wake up,
 * the directory is removed. No other thread may be in a call on the publisher. NULL does nothing.
 * In a child of fork it releases the memory and leaves the parent's directory alone.
 * @param publisher from object_publisher_open(), or NULL.
 */
VANTRO_PLATFORM_API void object_publisher_close(struct object_publisher *publisher);

/**
 * Publishes one change of one object: attributes set and deleted, together, as one change text.
 * An object that does not exist is created. Values are not compared: setting what is already so is
 * a change like any other. With nothing to set or delete the change is the object's line alone.
 * Deleting an attribute that the object does not have is published all the same.
 * @param publisher  from object_publisher_open().
 * @param object     the object's name: [A-Za-z0-9._-]+, at most OBJECT_NAME_MAX, not ".all".
 * @param flags      0 or OBJECT_TRUNCATE.
 * @param attributes, count what changes, in the order in which readers see it; of two attributes
 *   with one name the later counts. May be NULL when count is 0.
 * @return 0, or -1: EINVAL (a name that cannot be, an unknown encoding or flag), EMSGSIZE (the
 *   change, or the object in full after it, exceeds OBJECT_CHANGE_MAX bytes), ENOSPC (all objects
 *   in full would exceed OBJECT_TOTAL_MAX), ENOMEM, EBADF (in a child of fork).
 */
VANTRO_PLATFORM_API int object_publish(struct object_publisher *publisher, const char *object,
                                       unsigned flags, const struct object_attribute *attributes,
                                       size_t count);

/**
 * Holds back the bell that wakes waiting readers, until object_release_bell(). What is published
 * meanwhile, by any thread, can be read at once; who waits sleeps on. For a service whose answer to
 * a client should not wait for the wake-up of its readers, and for several changes that need one
 * wake-up only. Any number of threads may hold it at a time, each for as long as an answer takes.
 * NULL does nothing. Does not block.
 * @param publisher from object_publisher_open(), or NULL.
 */
VANTRO_PLATFORM_API void object_hold_bell(struct object_publisher *publisher);

/**
 * Ends one object_hold_bell(), and wakes waiting readers if something was published that they were
 * not woken for: also what other threads published that still hold the bell. One system call at
 * most. errno is left alone.
 * @param publisher from object_publisher_open(), or NULL.
 */
VANTRO_PLATFORM_API void object_release_bell(struct object_publisher *publisher);

/**
 * Deletes an object.
 * @param publisher, object as for object_publish().
 * @return 0, or -1: ENOENT (there is none of that name: nothing is published), EINVAL, EBADF,
 *   ENOMEM.
 */
VANTRO_PLATFORM_API int object_delete(struct object_publisher *publisher, const char *object);

#ifdef __cplusplus
}
#endif

#endif
