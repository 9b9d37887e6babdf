/**
 * @file
 * Change texts: the result of one read of an object, and the text of one publication.
 *
 * A change text concerns one object. It consists of lines, each ended by a newline:
 *
 *   @name                      what follows belongs to this object
 *   +@name                     the same; the object was created
 *   -@name                     the object was deleted
 *   #@name                     the object lost all its attributes; what follows is all that it has
 *   attribute:encoding:value   an attribute was set
 *   -attribute                 an attribute was deleted
 *
 * The encoding is empty for text, "n" for a number, "b" for a boolean ("true" or "false"), "json"
 * for a JSON text. Object names are [A-Za-z0-9._-]+ and stand as they are. In attribute names and
 * values a backslash escapes: `\\ \n \r \t`, and in attribute names `\:` and, as the first
 * character, `\@ \+ \- \#`. No text holds a NUL. At most OBJECT_CHANGE_MAX bytes.
 *
 * None of the calls here takes a lock or makes a system call; none allocates.
 */
#ifndef VANTRO_PLATFORM_CHANGE_H
#define VANTRO_PLATFORM_CHANGE_H

#include <stddef.h>
#include <sys/types.h>

#include <vantro/platform/export.h>
#include <vantro/platform/limits.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The kinds of lines of a change text: the results of kivoparse(). */
enum kivo_result {
    KIVO_ERROR = -1,           /**< The line cannot be parsed. */
    KIVO_END = 0,              /**< The end of the text. */
    KIVO_OBJECT = 1,           /**< `object`: the following lines belong to it. */
    KIVO_OBJECT_CREATED = 2,   /**< `object` was created. */
    KIVO_OBJECT_DELETED = 3,   /**< `object` was deleted. */
    KIVO_OBJECT_TRUNCATED = 4, /**< `object` lost all its attributes. */
    KIVO_ATTRIBUTE = 5,        /**< `attribute` has `value` in `encoding`. */
    KIVO_ATTRIBUTE_DELETED = 6 /**< `attribute` was removed. */
};

/** The type of a value. */
enum kivo_encoding { KIVO_TEXT = 0, KIVO_NUMBER = 1, KIVO_BOOLEAN = 2, KIVO_JSON = 3 };

/**
 * The result of kivoparse() for one line. Zero it before the first line of a text, and pass the
 * same record for each following line. All strings are NUL-terminated and lie in the change text.
 */
struct kivo_record {
    char *object;                /**< The object whose line came last; NULL before the first. */
    char *attribute;             /**< The attribute's name; NULL in an object's line. */
    char *value;                 /**< The value, unescaped; NULL except for KIVO_ATTRIBUTE. */
    enum kivo_encoding encoding; /**< Of the value. */
};

/**
 * Parses the next line of a change text, in place: the text is modified, so it cannot be parsed
 * again. Lines that end at a NUL instead of a newline were truncated, and are errors.
 * @param cursor    the next line to parse; set to the text's start before the first call. Advanced
 *                  after the line, except for KIVO_END and KIVO_ERROR, where it stays and the line
 *                  is unchanged.
 * @param object    if not NULL, only lines of the object of that name are reported.
 * @param attribute if not NULL, only object lines and attribute lines of that name are reported.
 * @param record    filled.
 * @param flags     0.
 * @return one of enum kivo_result. KIVO_ERROR also for a cursor or record of NULL, and other flags.
 */
VANTRO_PLATFORM_API int kivoparse(char **cursor, const char *object, const char *attribute,
                                  struct kivo_record *record, int flags);

/** Writes a change text into the caller's memory. Make it with kivo_writer_init(). */
struct kivo_writer {
    char *text;      /**< The caller's memory. */
    size_t capacity; /**< Bytes at `text`. */
    size_t length;   /**< Bytes written. */
    int error;       /**< The first error number; after an error nothing is written. */
};

/**
 * Begins a text.
 * @param writer   filled.
 * @param text     memory of the caller, which must outlive the writer.
 * @param capacity bytes at `text`; a text needs one more than its length, for the NUL.
 */
VANTRO_PLATFORM_API void kivo_writer_init(struct kivo_writer *writer, char *text, size_t capacity);

/**
 * Writes an object's line. An error is kept in the writer: EINVAL for an invalid name or another
 * result than KIVO_OBJECT, _CREATED, _DELETED and _TRUNCATED, EMSGSIZE if it does not fit.
 * @param writer begun by kivo_writer_init().
 * @param line   the kind of line.
 * @param name   the object's name.
 */
VANTRO_PLATFORM_API void kivo_write_object(struct kivo_writer *writer, enum kivo_result line,
                                           const char *name);

/**
 * Writes an attribute and its value, escaped. Errors as above; EINVAL also for an empty name and an
 * unknown encoding.
 * @param writer   begun by kivo_writer_init().
 * @param name, value NUL-terminated; copied.
 * @param encoding the type of the value.
 */
VANTRO_PLATFORM_API void kivo_write_attribute(struct kivo_writer *writer, const char *name,
                                              enum kivo_encoding encoding, const char *value);

/**
 * Writes that an attribute was deleted. Errors as above.
 * @param writer begun by kivo_writer_init().
 * @param name   the attribute's name.
 */
VANTRO_PLATFORM_API void kivo_write_attribute_deleted(struct kivo_writer *writer, const char *name);

/**
 * Ends a text with its NUL.
 * @param writer begun by kivo_writer_init().
 * @return its length, or -1: the first error of the calls above.
 */
VANTRO_PLATFORM_API ssize_t kivo_writer_finish(struct kivo_writer *writer);

#ifdef __cplusplus
}
#endif

#endif
