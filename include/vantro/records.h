/**
 * @file
 * The catalogue's records, and their packed form in messages.
 *
 * A player service describes its catalogue with three records: media sources (MediaSource), the
 * entries of a media source (MediaNode) and the metadata of an entry (Metadata). Applications read
 * the records' fields; the unpackers make the records from the bytes of a reply. Services keep
 * ServiceMediaSource, ServiceMediaNode and Metadata, and the packers turn those into bytes.
 *
 * Strings. Every string field is a NUL-terminated string, or NULL if the value is absent.
 *
 * Ownership. An unpacker returns one block that holds `count` records side by side; each present
 * string is a separate block. The caller owns all of them: free() every string that is not NULL,
 * then the block, or call the vantro_free_* function of extras.h. Packers and sizing functions read
 * their arguments and keep no reference to them.
 *
 * The packed form is the records one after the other, without a count, padding or alignment.
 * Integers are little-endian. A string is a 32-bit length, then that many bytes without a NUL;
 * length -1 is an absent string, 0 an empty one, and readers treat both as absent.
 *
 *     MediaSource  id, type, status (4 bytes each), capabilities (8), uid, name, view_name
 *     MediaNode    type, count, ms_id, ms_type (4 bytes each), id, name
 *     Metadata     duration, width, height, disc, track (4 bytes each), title, artwork, artist,
 *                  album, genre, year, reserved
 *
 * Threads. No function here keeps state, blocks or logs; any thread may call any of them.
 */
#ifndef VANTRO_RECORDS_H
#define VANTRO_RECORDS_H

#include <stdint.h>

#include <vantro/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Bytes of a packed record whose strings are all absent. The bytes of strings are added to this.
 */
enum {
    VANTRO_PACKED_MEDIA_SOURCE_MIN = 32,
    VANTRO_PACKED_MEDIA_NODE_MIN = 24,
    VANTRO_PACKED_METADATA_MIN = 48
};

/** A media source, for applications. The service defines the meaning of the integers. */
typedef struct MediaSource {
    int32_t id;            /**< The number by which nodes and queries refer to the source. */
    char *uid;             /**< Unique identifier. */
    char *name;            /**< Name. */
    char *view_name;       /**< Name for people to read. */
    int32_t type;          /**< Type. */
    int32_t status;        /**< Status. */
    uint64_t capabilities; /**< What the source can do. */
} MediaSource;

/** An entry of a media source: a result of browsing or searching, or a track. */
typedef struct MediaNode {
    char *id;        /**< Identifier within the media source. */
    char *name;      /**< Name. */
    int32_t type;    /**< Type. */
    int32_t count;   /**< Count; the service defines its meaning. */
    int32_t ms_id;   /**< `id` of the media source that holds the node. */
    int32_t ms_type; /**< `type` of that media source. */
} MediaNode;

/** The metadata of a track or another entry. */
typedef struct Metadata {
    char *title;      /**< Title. */
    int32_t duration; /**< Duration in milliseconds. */
    char *artwork;    /**< Reference to a picture. */
    char *artist;     /**< Artist. */
    char *album;      /**< Album. */
    char *genre;      /**< Genre. */
    char *year;       /**< Year, as text. */
    int32_t width;    /**< Width of the picture. */
    int32_t height;   /**< Height of the picture. */
    int32_t disc;     /**< Number of the disc. */
    int32_t track;    /**< Number of the track on the disc. */
    char *reserved;   /**< For the service; transferred like the other strings. */
} Metadata;

/** A media source, for services. Fields marked "stays" are never sent. */
typedef struct ServiceMediaSource {
    int32_t id;            /**< The number by which nodes and queries refer to the source. */
    const char *uid;       /**< Unique identifier. */
    uint32_t service_data; /**< Stays: the service's own. */
    const char *name;      /**< Name. */
    const char *view_name; /**< Name for people to read. */
    int32_t type;          /**< Type. */
    uint64_t capabilities; /**< What the source can do. */
    int32_t status;        /**< Status. */
    void *service_record;  /**< Stays: any data of the service for the source. */
} ServiceMediaSource;

/** An entry of a media source, for services. Fields marked "stays" are never sent. */
typedef struct ServiceMediaNode {
    const char *id;        /**< Identifier within the media source. */
    const char *name;      /**< Name. */
    uint32_t service_data; /**< Stays: the service's own. */
    int32_t type;          /**< Type. */
    int32_t count;         /**< The number of entries that browsing it returns. */
    int32_t ms_id;         /**< `id` of the media source that holds the node. */
    int32_t ms_type;       /**< `type` of that media source. */
    uint32_t service_mark; /**< Stays: the service's own. */
} ServiceMediaNode;

/**
 * Packs media sources. There is no sizing function for them: a record takes
 * VANTRO_PACKED_MEDIA_SOURCE_MIN bytes plus the lengths of its strings.
 * @param records `count` records; NULL writes nothing.
 * @param count   0 or less writes nothing.
 * @param buffer  room for the packed size of the whole array, which the caller must ensure; any
 *                alignment. Not used if nothing is written.
 * @param size    receives the number of bytes written. If the packed size of the array exceeds
 *                INT_MAX, this is 0, and the contents of `buffer` are unspecified.
 */
VANTRO_API void pack_media_source(const ServiceMediaSource *records, int count, void *buffer,
                                  int *size);

/**
 * Packs media nodes, like pack_media_source(); compute_media_node_size() returns the packed size.
 * @param records, count, buffer, size as for pack_media_source().
 */
VANTRO_API void pack_media_node(const ServiceMediaNode *records, int count, void *buffer,
                                int *size);

/**
 * Packs metadata, like pack_media_source(); compute_metadata_size() returns the packed size.
 * @param records, count, buffer, size as for pack_media_source().
 */
VANTRO_API void pack_metadata(const Metadata *records, int count, void *buffer, int *size);

/**
 * Returns the number of bytes that pack_media_node() writes.
 * @param records `count` records; NULL only if count is 0 or less.
 * @param count   0 or less gives 0.
 * @return the packed size in bytes; INT_MAX for an array too large to pack.
 */
VANTRO_API int compute_media_node_size(const ServiceMediaNode *records, int count);

/**
 * Returns the number of bytes that pack_metadata() writes, like compute_media_node_size().
 * @param records, count as for compute_media_node_size().
 * @return the packed size in bytes, or INT_MAX.
 */
VANTRO_API int compute_metadata_size(const Metadata *records, int count);

/**
 * Makes media sources from their packed form. The bytes need not be trusted: nothing beyond `size`
 * is read, and no more memory is allocated than that many bytes can fill, and one record.
 * @param buffer  the packed records, at any alignment.
 * @param size    bytes at `buffer`; bytes after the last record are ignored.
 * @param count   records to read: exactly that many, 1 or more.
 * @param records receives the new block, owned by the caller.
 * @return 0, or -1. Invalid arguments (buffer or records NULL, size or count below 1, count above
 *   the number of records that `size` bytes can hold) leave *records unchanged; if the bytes end
 *   within a record, or memory is short, *records is set to NULL, and there is nothing to free.
 */
VANTRO_API int unpack_media_source(const void *buffer, int size, int count, MediaSource **records);

/**
 * Makes media nodes from their packed form, like unpack_media_source().
 * @param buffer, size, count, records as for unpack_media_source().
 * @return 0, or -1: as unpack_media_source().
 */
VANTRO_API int unpack_media_node(const void *buffer, int size, int count, MediaNode **records);

/**
 * Makes metadata from their packed form, like unpack_media_source().
 * @param buffer, size, count, records as for unpack_media_source().
 * @return 0, or -1: as unpack_media_source().
 */
VANTRO_API int unpack_metadata(const void *buffer, int size, int count, Metadata **records);

#ifdef __cplusplus
}
#endif

#endif
