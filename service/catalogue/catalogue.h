// The interface for reading the catalogue: sources, nodes, songs. Any thread.
//
// No call waits for a scan: a read sees the last committed state. A read of several steps sees one
// state of the catalogue.
#ifndef VANTRO_SERVICE_CATALOGUE_CATALOGUE_H
#define VANTRO_SERVICE_CATALOGUE_CATALOGUE_H

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vantro::service::catalogue {

// A song by its number, which is never reused.
using SongId = int64_t;

struct Source {
    int32_t id = 0;
    std::string uid;
    std::string name;
    std::string view_name;
    int32_t type = 0;
    int32_t status = 0;
    uint64_t capabilities = 0;
};

struct Node {
    std::string id;
    std::string name;
    int32_t type = 0;
    int32_t count = 0;
    int32_t source = 0;
    int32_t source_type = 0;
    SongId song = 0; // of a song only
};

// A node that is passed to a NodeSink. Its texts are valid during the call only.
struct NodeRow {
    std::string_view id;
    std::string_view name;
    int32_t type = 0;
    int32_t count = 0;
    int32_t source = 0;
    int32_t source_type = 0;
    SongId song = 0; // of a song only
};

// Takes the nodes of a listing one by one, so that a long listing is not held in memory.
class NodeSink {
  public:
    virtual ~NodeSink() = default;
    // Announces the number of nodes, if it is known.
    virtual void expect(size_t) {}
    // Called before the nodes from `first` to before `last` of a list, whose name is unique for all
    // time. If the sink has these nodes already, it returns true and gets none.
    virtual bool has(const std::string & /*list*/, size_t /*first*/, size_t /*last*/) {
        return false;
    }
    // False if no more nodes are wanted.
    virtual bool take(const NodeRow &node) = 0;
};

// Every text is valid UTF-8 without NUL and at most tag_text_max bytes; empty where unknown.
struct SongMetadata {
    std::string title;
    std::string artwork; // URI, or ""
    std::string artist;
    std::string album;
    std::string genre;
    std::string year;
    int32_t duration_ms = 0;
    int32_t width = 0; // of the artwork in pixels, 0 if there is none
    int32_t height = 0;
    int32_t disc = 0;
    int32_t track = 0;
};

// The data of a song that an engine needs in its queue.
struct QueuedSong {
    SongId id = 0;
    int32_t source = 0;
    int32_t duration_ms = 0;
};

// The part of its file that a song is, in microseconds; a `stop_us` of 0 is the file's end.
struct SongPart {
    int64_t start_us = 0;
    int64_t stop_us = 0;
    std::string file; // identifies the file: equal for equal files
};

// A range of a list's entries. An `offset` below 0 counts as 0; a `count` of 0 or less means all.
struct Range {
    int32_t offset = 0;
    int32_t count = 0;
};

class Catalogue {
  public:
    virtual ~Catalogue() = default;

    virtual std::vector<Source> sources() = 0;

    // Each returns 0, or ENOENT (no such source, no such node), EINVAL (an unknown filter), EIO
    // (the catalogue's file fails; some nodes may have come before).
    virtual int browse(int32_t source, std::string_view node, Range range, NodeSink &nodes) = 0;
    virtual int search(int32_t source, std::string_view filter, std::string_view term, Range range,
                       NodeSink &nodes) = 0;
    virtual int metadata(int32_t source, std::string_view node,
                         std::optional<SongMetadata> &metadata) = 0;
    // The metadata of listed nodes, in their order; empty for a node that is gone. Returns 0 or
    // EIO.
    virtual int describe(const std::vector<Node> &nodes, std::vector<SongMetadata> &metadata) = 0;
    // One value for each key, in the order of the keys; empty if there is none.
    virtual int extended_metadata(int32_t source, std::string_view node,
                                  const std::vector<std::string_view> &keys,
                                  std::vector<std::string> &values) = 0;
    // Adds the songs of a node in the order of play: the song itself, or all songs below the node.
    virtual int songs(int32_t source, std::string_view node, std::vector<QueuedSong> &songs) = 0;

    // Every song of every source, in order. Returns 0 or EIO.
    virtual int all_songs(std::vector<QueuedSong> &songs) = 0;
    // The nodes of songs, in the order of `ids`; for a song that is gone, a node of type
    // VANTRO_NODE_SONG with an empty id. Returns 0 or EIO.
    virtual int song_nodes(const SongId *ids, size_t count, NodeSink &nodes) = 0;
    // Node and metadata of one song. Returns 0, ENOENT if the song is gone, or EIO.
    virtual int song(SongId id, Node &node, SongMetadata &metadata) = 0;

    // 0, or the VANTRO_ERROR_* for which a song's file cannot be played now. Reads the file, so it
    // may wait for a disk.
    virtual int32_t check(SongId id) = 0;

    // Opens a song's file for reading, without leaving its directory of music. Returns a
    // descriptor, or -1 and errno: ENOENT if the song is gone. May wait for a disk.
    virtual int open(SongId id) = 0;

    // The song's part of its file; by default the whole file. Nothing if the catalogue cannot be
    // read now. May wait for a disk.
    virtual std::optional<SongPart> part(SongId) { return SongPart(); }

    // Starts a scan of all of the music soon.
    virtual void rescan() = 0;
    // Starts a scan soon of the folders that have a node's songs, with everything below these
    // folders. Returns 0, ENOENT (no such source, no such node) or EIO.
    virtual int rescan_node(int32_t source, std::string_view node) = 0;

    // Saves songs as a playlist, in their order; with `replace`, replaces a playlist of that name.
    // Songs that have left the catalogue are left out; `kept` is the number of the others. Returns
    // 0; EINVAL (an invalid name), EEXIST, ENODATA (no song is known), EMSGSIZE (too many songs),
    // EDQUOT (too many playlists), ENOSPC, EACCES or EROFS (from the system), EIO; ENOSYS from a
    // catalogue without playlists. If it fails, an existing playlist of that name is unchanged.
    virtual int save_playlist(std::string_view, const std::vector<SongId> &, bool /*replace*/,
                              int32_t & /*kept*/) {
        return ENOSYS;
    }
    // Returns 0; EINVAL, ENOENT (no such playlist), EACCES, EROFS, EIO or ENOSYS.
    virtual int delete_playlist(std::string_view) { return ENOSYS; }

    // The next `count` numbers for track sessions, which no run has used before. Returns the first,
    // or 0 if the numbers have run out or cannot be saved.
    virtual int32_t take_session_ids(int32_t count) = 0;
};

} // namespace vantro::service::catalogue

#endif
