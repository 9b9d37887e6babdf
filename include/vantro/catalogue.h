/**
 * @file
 * What the integers, ids and keys of the catalogue mean in vantrod, and in any service that wants
 * its clients to work with both.
 *
 * The library carries all of these unchanged and gives them no meaning of its own. This header is
 * constants only: nothing here needs to be linked.
 */
#ifndef VANTRO_CATALOGUE_H
#define VANTRO_CATALOGUE_H

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------- media sources */

/** `type` of a MediaSource, and `ms_type` of its nodes. */
enum {
    VANTRO_SOURCE_GONE = 0, /**< Of an event only: the source has gone. When it returns it has the
                                 same uid, and its nodes the same ids. */
    VANTRO_SOURCE_DIRECTORY = 1, /**< A directory of audio files. */
    VANTRO_SOURCE_REMOVABLE = 2, /**< A folder or volume of a media root, which may go. */
    VANTRO_SOURCE_PLAYLISTS = 3  /**< The playlists that vantro_save_playlist() saved: nodes of type
                                      VANTRO_NODE_PLAYLIST, whose entries are songs of the other
                                      sources. One that is not found now has no id. Such a source
                                      is there once there is such a playlist. */
};

/** `status` of a MediaSource. */
enum {
    VANTRO_SOURCE_UNAVAILABLE = 0, /**< Its directory cannot be read now; its nodes are kept. */
    VANTRO_SOURCE_SCANNING = 1,    /**< Being read; what is known so far can be used. */
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
 * any other. Other ids come from the service; they stay the same over a rescan, a restart and a
 * rebuilt catalogue, as long as what they name stays where it is.
 */
#define VANTRO_NODE_ROOT ""

/**
 * `type` of a MediaNode. `count` is the number of entries that browsing the node gives; 0 for a
 * song, which has none.
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

/** What the `filter` of vantro_search() may be; NULL or "" searches all of them. */
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
        1, /**< Every song of every source: what play makes when there is none. */
    VANTRO_TRKSESSION_NODE = 2 /**< Made from a node by vantro_create_trksession(). */
};

/**
 * Most track sessions made by vantro_create_trksession() that a player keeps at once; one more is
 * refused.
 */
#define VANTRO_TRKSESSIONS_MAX 16

/**
 * Most songs of a track session that is made of several nodes, or to which songs were added; more
 * are refused. One node has as many as it has.
 */
#define VANTRO_TRKSESSION_SONGS_MAX 1000000

/**
 * The second value of vantro_create_trksession(). The first one, after the pointer, is the index
 * of the song to begin with, 0 for the first.
 *
 * The node id may be several, one a line. If `ms_id` is 0, each line names its source too, as in
 * "1:s8e91c07d": so one session holds songs of several sources. A line that cannot be used refuses
 * the whole.
 *
 * The last three make a new session, with an id of its own, in place of the current one, which is
 * destroyed; the player plays on, or is held, as it was. Without a current session they are
 * VANTRO_TRKSESSION_LOAD.
 */
enum {
    VANTRO_TRKSESSION_LOAD = 0,   /**< Make it the player's current session, held at its start. */
    VANTRO_TRKSESSION_PLAY = 1,   /**< Make it current and play. */
    VANTRO_TRKSESSION_APPEND = 2, /**< Add the songs after those of the current session. The first
                                       value is 0. */
    VANTRO_TRKSESSION_INSERT = 3, /**< Add them after the current track. The first value is 0. */
    VANTRO_TRKSESSION_KEEP = 4    /**< Take these songs instead, at that index. If the song there is
                                       the current one, its position is kept. */
};

/* ----------------------------------------------------------------------------------- errors */

/**
 * The code of a VANTRO_EVENT_ERROR: why a track was not played. The player goes on with the next
 * one, unless it was the last, or too many in a row could not be played.
 */
enum {
    VANTRO_ERROR_GONE = 1,       /**< Its file is not there any more. */
    VANTRO_ERROR_UNREADABLE = 2, /**< Its file cannot be read. */
    VANTRO_ERROR_DAMAGED = 3,    /**< What its file holds cannot be played. */
    VANTRO_ERROR_OUTPUT = 4      /**< The audio output went away or cannot be opened. The player is
                                      paused then, and play tries the output again. */
};

/* ------------------------------------------------------------------------- extended metadata */

/**
 * Keys of vantro_get_extended_metadata(). Values are UTF-8 text; numbers are decimal. A key that
 * is not known, or that a node has no value for, has no value; that is not an error.
 */
#define VANTRO_KEY_TITLE "title"               /**< Title of the song. */
#define VANTRO_KEY_ARTIST "artist"             /**< Who performs it. */
#define VANTRO_KEY_ALBUM "album"               /**< Title of the album. */
#define VANTRO_KEY_ALBUM_ARTIST "album_artist" /**< Artist of the album as a whole. */
#define VANTRO_KEY_COMPOSER "composer"         /**< Who composed it. */
#define VANTRO_KEY_CONDUCTOR "conductor"       /**< Who conducts. */
#define VANTRO_KEY_GENRE "genre"               /**< Genre; several are joined. */
#define VANTRO_KEY_YEAR "year"                 /**< As the tag has it, often a whole date. */
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
#define VANTRO_KEY_PATH "path"   /**< The file, absolute; bytes that are no UTF-8 replaced. */
/** Of a track of a cue sheet: where in its file it begins; milliseconds. Other songs have none. */
#define VANTRO_KEY_START "start"
#define VANTRO_KEY_SIZE "size"         /**< Bytes of the file. */
#define VANTRO_KEY_MODIFIED "modified" /**< When the file was changed; seconds since 1970. */
#define VANTRO_KEY_ARTWORK "artwork"   /**< URI of the cover. */

#ifdef __cplusplus
}
#endif

#endif
