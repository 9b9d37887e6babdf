/**
 * @file
 * The messages between the player library and a player service, for authors of services.
 *
 * An application does not need this header. A service is attached with msgserver_add() under
 * VANTRO_SERVICE_NAME and VANTRO_SERVICE_INSTANCE. The payload of each request is a RequestHeader,
 * followed by the command's parameters.
 *
 * Parameters follow each other without padding, so read them byte by byte or with memcpy().
 * Integers are in native byte order, which is little-endian on every supported host, and have 32
 * bits unless stated otherwise. A string is a 32-bit length without the NUL, then that many bytes
 * without a NUL. `payload_length` and the lengths of strings cannot be trusted: check them against
 * the number of received bytes, the transport header's send_length.
 *
 * Every answer begins with a signed 32-bit result word: 0 if the command was carried out, any other
 * value if it was refused; in the latter case nothing after it is read. The reply status is 0 for
 * both: another status counts as a failed exchange. An answer that ends before the integers of its
 * command counts as a refusal. An answer may be longer than the client's capacity: callout_reply()
 * then holds it, and only the queries marked "grows" fetch it; for the others the call fails. So
 * answers to commands, and answers of a fixed length, must have exactly that length. Packed records
 * are those of records.h.
 */
#ifndef VANTRO_PROTOCOL_H
#define VANTRO_PROTOCOL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Name under which the library looks for the service. */
#define VANTRO_SERVICE_NAME "vantro.sys"

/** Instance under which the library looks for the service. */
#define VANTRO_SERVICE_INSTANCE "default"

/** Longest name of a player, without its NUL. */
#define VANTRO_PLAYER_NAME_MAX 31

/** Bytes of packed records that a client has room for in its first exchange. */
#define VANTRO_REPLY_AREA 65536

/**
 * Longest answer that a client fetches, in bytes, including result word and count. About three
 * million nodes fit; the limit bounds the memory that a client reserves for a length that a service
 * states.
 */
#define VANTRO_REPLY_MAX (256 * 1024 * 1024)

/** Most nodes that come with their metadata in one answer. */
#define VANTRO_METADATA_PAGE_MAX 1000

/** The start of every request's payload. 16 bytes. */
typedef struct RequestHeader {
    uint16_t command;        /**< VANTRO_COMMAND_*. */
    uint16_t reserved0;      /**< 0. */
    uint32_t payload_length; /**< Bytes that follow this header. */
    uint32_t reserved1;      /**< 0. */
    uint32_t reserved2;      /**< 0. */
} RequestHeader;

/**
 * The commands, each with its parameters, then the contents of its answer after the result word. 13
 * is not used.
 */
enum {
    /** Player's name. Nothing. */
    VANTRO_COMMAND_OPEN = 0,
    /** Player's name. Nothing. */
    VANTRO_COMMAND_CLOSE = 1,
    /** None. Record count; that many packed MediaSource. */
    VANTRO_COMMAND_GET_MEDIA_SOURCES = 2,
    /** None. A VantroStateInfo. */
    VANTRO_COMMAND_GET_CURRENT_STATE = 3,
    /** None. A VantroTrksessionInfo. */
    VANTRO_COMMAND_GET_CURRENT_TRKSESSION_INFO = 4,
    /** None. Index; 64-bit track-session id; lengths in bytes of the packed node and of the packed
     *  metadata, 0 if there is none; the packed MediaNode; the packed Metadata. */
    VANTRO_COMMAND_GET_CURRENT_TRACK_INFO = 5,
    /** None. Position in milliseconds. */
    VANTRO_COMMAND_GET_CURRENT_TRACK_POSITION = 6,
    /** Media source's id; offset; count wanted; node's id (string). Record count; that many packed
     *  MediaNode. Grows. */
    VANTRO_COMMAND_BROWSE = 7,
    /** Media source's id; offset; count wanted; filter (string); term (string). As for browse.
     *  Grows. */
    VANTRO_COMMAND_SEARCH = 8,
    /** 64-bit track-session id; offset; count wanted. As for browse. Grows. */
    VANTRO_COMMAND_GET_TRKSESSION_TRACKS = 9,
    /** Media source's id; node's id (string). One packed Metadata, or nothing. */
    VANTRO_COMMAND_GET_METADATA = 10,
    /** Media source's id; node's id (string); number of keys; each key (string). For each key a
     *  value (string), of length 0 or less if there is none. Grows. */
    VANTRO_COMMAND_GET_EXTENDED_METADATA = 11,
    /** Media source's id; two 32-bit values; node's id (string). 64-bit track-session id.
     *  `payload_length` is 4 too small in this request: do not rely on it. */
    VANTRO_COMMAND_CREATE_TRKSESSION = 12,
    /** 64-bit track-session id. Nothing. */
    VANTRO_COMMAND_DESTROY_TRKSESSION = 14,
    /** None. Nothing. */
    VANTRO_COMMAND_PLAY = 15,
    /** None. Nothing. */
    VANTRO_COMMAND_STOP = 16,
    /** None. Nothing. */
    VANTRO_COMMAND_PAUSE = 17,
    /** Index, signed. Nothing. */
    VANTRO_COMMAND_JUMP = 18,
    /** None. Nothing. */
    VANTRO_COMMAND_NEXT = 19,
    /** None. Nothing. */
    VANTRO_COMMAND_PREVIOUS = 20,
    /** Position in milliseconds, signed. Nothing. */
    VANTRO_COMMAND_SEEK = 21,
    /** Rate, a single-precision float; 1.0 is normal speed. Nothing. */
    VANTRO_COMMAND_SET_PLAYBACK_RATE = 22,
    /** VANTRO_SHUFFLE_*. Nothing. */
    VANTRO_COMMAND_SHUFFLE = 23,
    /** VANTRO_REPEAT_*. Nothing. */
    VANTRO_COMMAND_REPEAT = 24,

    /* Extensions, from 256 on. A service that does not know them refuses them. */

    /** None. A VantroVolume. */
    VANTRO_COMMAND_GET_VOLUME = 256,
    /** Level, 0 to 100. Nothing. */
    VANTRO_COMMAND_SET_VOLUME = 257,
    /** 0 or 1. Nothing. */
    VANTRO_COMMAND_SET_MUTED = 258,
    /** None. Nothing. */
    VANTRO_COMMAND_RESCAN = 263,
    /** None. Count; that many names (strings). No player need be open. Grows. */
    VANTRO_COMMAND_LIST_PLAYERS = 264,
    /** As for browse. Record count, at most VANTRO_METADATA_PAGE_MAX; bytes of the packed nodes;
     *  that many packed MediaNode; as many packed Metadata. Grows. */
    VANTRO_COMMAND_BROWSE_METADATA = 265,
    /** As for search. As for browse with metadata. Grows. */
    VANTRO_COMMAND_SEARCH_METADATA = 266,
    /** As for the tracks of a session. As for browse with metadata. Grows. */
    VANTRO_COMMAND_GET_TRKSESSION_TRACKS_METADATA = 267,
    /** VANTRO_PLAYLIST_* flags; name (string). Number of tracks that were saved. */
    VANTRO_COMMAND_SAVE_PLAYLIST = 268,
    /** Name (string). Nothing. */
    VANTRO_COMMAND_DELETE_PLAYLIST = 269,
    /** None. A VantroIdentity. No player need be open. */
    VANTRO_COMMAND_GET_IDENTITY = 271,
    /** None. As for the state; as for the session; as for the volume; position in milliseconds;
     *  index of the current track; bytes of its packed MediaNode; bytes of its packed Metadata;
     *  both. Without a session the index is -1, and the two lengths are 0. Grows. */
    VANTRO_COMMAND_GET_STATUS = 272,
    /** Media source's id; node's id (string). Nothing. */
    VANTRO_COMMAND_RESCAN_NODE = 273
};

#ifdef __cplusplus
}
#endif

#endif
