/**
 * @file
 * The meaning of the catalogue's integers, ids and keys in vantrod, and in any service that should
 * work with the same clients.
 *
 * The library transfers all of these unchanged and does not interpret them. This header contains
 * constants only, so it needs no library.
 */
#ifndef VANTRO_CATALOGUE_H
#define VANTRO_CATALOGUE_H

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------- media sources */

/** `type` of a MediaSource, and `ms_type` of its nodes. */
enum {
    VANTRO_SOURCE_GONE = 0, /**< In events only: the source has gone. When it returns, it has the
                               same uid, and its nodes have the same ids. */
    VANTRO_SOURCE_DIRECTORY = 1, /**< A directory of audio files. */
    VANTRO_SOURCE_REMOVABLE = 2, /**< A folder or volume of a media root, which may disappear. */
    VANTRO_SOURCE_PLAYLISTS = 3  /**< The playlists that vantro_save_playlist() saved: nodes of type
                                      VANTRO_NODE_PLAYLIST, whose entries are songs of the other
                                      sources. A song that is not found now has no id. The source
                                      exists once a playlist was saved. */
};

/** `status` of a MediaSource. */
enum {
    VANTRO_SOURCE_UNAVAILABLE = 0, /**< Its directory cannot be read now; its nodes stay. */
    VANTRO_SOURCE_SCANNING = 1,    /**< Being scanned; its present nodes can be used. */
    VANTRO_SOURCE_READY = 2        /**< Up to date. */
};

/** Bits of `capabilities` of a MediaSource. */
#define VANTRO_SOURCE_CAN_BROWSE 0x01ull            /**< vantro_browse(). */
#define VANTRO_SOURCE_CAN_SEARCH 0x02ull            /**< vantro_search(). */
#define VANTRO_SOURCE_CAN_METADATA 0x04ull          /**< vantro_get_metadata(). */
#define VANTRO_SOURCE_CAN_EXTENDED_METADATA 0x08ull /**< vantro_get_extended_metadata(). */
#define VANTRO_SOURCE_CAN_TRKSESSION 0x10ull        /**< vantro_create_trksession(). */
#define VANTRO_SOURCE_HAS_ARTWORK 0x20ull           /**< `artwork` of metadata is filled. */
#define VANTRO_SOURCE_HAS_PLAYLISTS 0x40ull         /**< Playlist files appear as nodes. */

/* ----------------------------------------------------------------------------- media nodes */

/**
 * Id of the node at the top of every source. It can be browsed, searched below and played like
 * any other. Other ids come from the service; they stay the same after a rescan, a restart and a
 * rebuilt catalogue, as long as the path or name of the node stays the same.
 */
#define VANTRO_NODE_ROOT ""

/**
 * `type` of a MediaNode. `count` is the number of entries that browsing the node returns; 0 for a
 * song, which has no entries.
 */
enum {
    VANTRO_NODE_UNKNOWN = 0,
    VANTRO_NODE_MENU = 1,     /**< A list of lists: the root, "Artists", "Albums"... */
    VANTRO_NODE_FOLDER = 2,   /**< A directory: its directories, then its songs. */
    VANTRO_NODE_ARTIST = 3,   /**< An artist: the albums, then single songs. */
    VANTRO_NODE_ALBUM = 4,    /**< An album: its songs, by disc, track and name. */
    VANTRO_NODE_GENRE = 5,    /**< A genre: its songs. */
    VANTRO_NODE_YEAR = 6,     /**< A year: its songs. */
    VANTRO_NODE_PLAYLIST = 7, /**< A playlist: its songs in its order. */
    VANTRO_NODE_SONG = 8      /**< One piece of music. */
};

/** Values of the `filter` of vantro_search(); NULL or "" searches for all of them. */
#define VANTRO_FILTER_ARTIST "artist"     /**< Finds artists. */
#define VANTRO_FILTER_ALBUM "album"       /**< Finds albums. */
#define VANTRO_FILTER_TITLE "title"       /**< Finds songs by title. */
#define VANTRO_FILTER_GENRE "genre"       /**< Finds genres. */
#define VANTRO_FILTER_COMPOSER "composer" /**< Finds songs by composer. */

/* -------------------------------------------------------------------------- track sessions */

/** `type` of a VantroTrksessionInfo. */
enum {
    VANTRO_TRKSESSION_NONE = 0, /**< There is no track session; `length` and `tsid` are 0. */
    VANTRO_TRKSESSION_ALL =
        1, /**< Every song of every source; play makes it if there is no session. */
    VANTRO_TRKSESSION_NODE = 2 /**< Made from a node by vantro_create_trksession(). */
};

/**
 * Most track sessions made by vantro_create_trksession() that a player keeps at a time; another one
 * is refused.
 */
#define VANTRO_TRKSESSIONS_MAX 16

/**
 * Most songs of a track session that is made of several nodes, or to which songs were added; more
 * are refused. A session of one node has no such limit.
 */
#define VANTRO_TRKSESSION_SONGS_MAX 1000000

/**
 * The second value of vantro_create_trksession(). The first one, after the pointer, is the index
 * of the song to begin with, 0 for the first.
 *
 * The node id may be several ids, one a line. If `ms_id` is 0, each line names its source too, as
 * in "1:s8e91c07d": so one session can hold songs of several sources. One invalid line makes the
 * whole request fail.
 *
 * The last three make a new session, with a new id, which replaces the current one; the current one
 * is destroyed. The player's state does not change. Without a current session they work like
 * VANTRO_TRKSESSION_LOAD.
 */
enum {
    VANTRO_TRKSESSION_LOAD = 0,   /**< Make it the player's current session, paused at its start. */
    VANTRO_TRKSESSION_PLAY = 1,   /**< Make it current and play. */
    VANTRO_TRKSESSION_APPEND = 2, /**< Add the songs after those of the current session. The first
                                       value is 0. */
    VANTRO_TRKSESSION_INSERT = 3, /**< Insert them after the current track. The first value is 0. */
    VANTRO_TRKSESSION_KEEP = 4 /**< Take these songs instead, with that index as the current song.
                                  If it is the current one already, its position is kept. */
};

/* ----------------------------------------------------------------------------------- errors */

/**
 * The code of a VANTRO_EVENT_ERROR: the reason for which a track was not played. The player
 * continues with the next one, unless it was the last, or too many in a row could not be played.
 */
enum {
    VANTRO_ERROR_GONE = 1,       /**< Its file does not exist any more. */
    VANTRO_ERROR_UNREADABLE = 2, /**< Its file cannot be read. */
    VANTRO_ERROR_DAMAGED = 3,    /**< The contents of its file cannot be played. */
    VANTRO_ERROR_OUTPUT = 4 /**< The audio output disappeared or cannot be opened. The player is
                               then paused, and play tries the output again. */
};

/* ------------------------------------------------------------------------- extended metadata */

/**
 * Keys of vantro_get_extended_metadata(). Values are UTF-8 text; numbers are decimal. If a key is
 * unknown, or the node has no value for it, the result is no value, not an error.
 */
#define VANTRO_KEY_TITLE "title"               /**< Title of the song. */
#define VANTRO_KEY_ARTIST "artist"             /**< The performing artist. */
#define VANTRO_KEY_ALBUM "album"               /**< Title of the album. */
#define VANTRO_KEY_ALBUM_ARTIST "album_artist" /**< Artist of the album as a whole. */
#define VANTRO_KEY_COMPOSER "composer"         /**< The composer. */
#define VANTRO_KEY_CONDUCTOR "conductor"       /**< The conductor. */
#define VANTRO_KEY_GENRE "genre"               /**< Genre; several are joined. */
#define VANTRO_KEY_YEAR "year"                 /**< The text of the tag, often a complete date. */
#define VANTRO_KEY_DISC "disc"                 /**< Number of the disc. */
#define VANTRO_KEY_DISC_TOTAL "disc_total"     /**< Discs of the album. */
#define VANTRO_KEY_TRACK "track"               /**< Number of the track on the disc. */
#define VANTRO_KEY_TRACK_TOTAL "track_total"   /**< Tracks of the disc. */
#define VANTRO_KEY_COMMENT "comment"           /**< Comment. */
#define VANTRO_KEY_LYRICS "lyrics"             /**< Lyrics, with line ends. */
#define VANTRO_KEY_COPYRIGHT "copyright"       /**< Copyright notice. */
#define VANTRO_KEY_BPM "bpm"                   /**< Beats a minute. */
#define VANTRO_KEY_COMPILATION "compilation"   /**< "1" for a collection of several artists. */
#define VANTRO_KEY_REPLAYGAIN_TRACK_GAIN "replaygain_track_gain" /**< dB, as "-6.20 dB". */
#define VANTRO_KEY_REPLAYGAIN_TRACK_PEAK "replaygain_track_peak" /**< 1.0 is full scale. */
#define VANTRO_KEY_REPLAYGAIN_ALBUM_GAIN "replaygain_album_gain" /**< dB. */
#define VANTRO_KEY_REPLAYGAIN_ALBUM_PEAK "replaygain_album_peak" /**< 1.0 is full scale. */
#define VANTRO_KEY_DURATION "duration"                           /**< Milliseconds. */
#define VANTRO_KEY_BIT_RATE "bit_rate"                           /**< Thousands of bits a second. */
#define VANTRO_KEY_SAMPLE_RATE "sample_rate"                     /**< Hertz. */
#define VANTRO_KEY_CHANNELS "channels"                           /**< Number of channels. */
#define VANTRO_KEY_CODEC "codec" /**< "flac", "vorbis", "opus", "mp3", "aac", "pcm"... */
#define VANTRO_KEY_PATH "path"   /**< Absolute path; bytes that are not UTF-8 are replaced. */
/** For a track of a cue sheet: its start in the file, in milliseconds. Other songs have no value.
 */
#define VANTRO_KEY_START "start"
#define VANTRO_KEY_SIZE "size"         /**< Bytes of the file. */
#define VANTRO_KEY_MODIFIED "modified" /**< Time of the file's last change; seconds since 1970. */
#define VANTRO_KEY_ARTWORK "artwork"   /**< URI of the cover. */

#ifdef __cplusplus
}
#endif

#endif
