// Writes the catalogue's file. Used by one thread. Readers see the changes after commit().
//
// Every function may throw an Error; after that only undo() may be called.
#ifndef VANTRO_SERVICE_CATALOGUE_DATABASE_WRITER_H
#define VANTRO_SERVICE_CATALOGUE_DATABASE_WRITER_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "service/catalogue/database/database.h"
#include "service/catalogue/files/catalogued_song.h"
#include "service/catalogue/files/playlist_file.h"
#include "service/catalogue/text/node_ids.h"

namespace vantro::service::catalogue {

struct KnownFile {
    FileStamp stamp;
    bool left_out = false;
    int64_t sheet = 0; // of a song: SongFile::sheet
};

// The catalogue's entries for one folder.
struct KnownFolder {
    // Tracks of cue sheets by name_of_track().
    std::unordered_map<std::string, KnownFile> files;
    std::set<std::string> folders; // the names of the folders in it
    std::string image;             // name of the cover, or ""
    FileStamp image_stamp;
};

class Writer {
  public:
    explicit Writer(Database &database) : database_(database) {}

    // The number of the source at that path, which is the same in every run.
    int32_t source_at(std::string_view path);
    // Adds a source with a given number.
    void add_source(int32_t id, std::string_view path);

    KnownFolder known(int32_t source, std::string_view folder);

    void put_song(const FoundSong &song);
    void put_playlist(const FileName &where, const PlaylistFile &playlist,
                      const std::vector<std::string> &paths);
    void put_image(const FileName &where, FileStamp stamp, const std::optional<Artwork> &artwork);
    void remove_image(int32_t source, std::string_view folder);
    // Records the reason for which a file is not in the catalogue. True if the reason is new.
    bool leave_out(const FileName &where, FileStamp stamp, std::string_view why);
    // Remove a file, or a folder with everything below it.
    void remove_file(const FileName &where);
    void remove_folder(int32_t source, std::string_view folder);

    // Does the work that needs all songs of a source: determines which songs of a folder form an
    // album, how many entries of playlists are songs, and which covers are unused.
    void settle(int32_t source);
    // Whether an earlier, unfinished scan has left changes that need settle().
    bool unsettled(int32_t source);
    bool has_song(int32_t source, std::string_view path);
    bool has_artwork(std::string_view file);

    int pending() const { return pending_; } // changes since the last commit
    // Returns the sources that have changed.
    std::vector<int32_t> commit();
    void undo();

  private:
    struct SongRow {
        int64_t id = 0;
        int64_t folder = 0;
        int64_t album = 0;
        int64_t year = 0;
    };

    struct Match {
        int64_t id;
        bool same; // the row with this key also has the identity
    };

    void begin();
    void changed(int32_t source, int songs = 0);
    int64_t node_at(int32_t source, Kind kind, const FoundName &name, int64_t parent,
                    std::string_view artist = {});
    int64_t folder_at(int32_t source, std::string_view folder);
    int64_t find_node(int32_t source, Kind kind, std::string_view identity, int64_t &key);
    int64_t find_by_key(Kind kind, std::string_view identity, int64_t &key,
                        const std::function<Match(int64_t key)> &look);
    bool shared(int64_t key);
    int64_t year_at(int32_t source, int32_t year);
    int64_t artwork_at(const std::optional<Artwork> &artwork);
    std::optional<SongRow> find_song(const FileName &where, int64_t &key);
    int64_t album_at(int32_t source, const FoundName &artist, FoundName album);
    void put_performers(int32_t source, int64_t song, const std::vector<FoundName> &performers,
                        std::string_view artist);
    void remove_performers(int64_t song);
    void settle_folder(int32_t source, int64_t folder);
    void link(int64_t song, const SongRow &row, const std::vector<int64_t> &genres);
    void unlink(const SongRow &row);
    void remove_song(int32_t source, const SongRow &row);
    void remove_playlist(int32_t source, int64_t node);
    void remove_songs_of(int32_t source, int64_t folder);
    void count(int64_t node, int difference);
    void apply_counts();
    void remove_node(int64_t node);

    Database &database_;
    std::optional<Transaction> transaction_;
    int pending_ = 0;
    std::map<int32_t, int> changed_; // sources, with the growth of their numbers of songs
    std::unordered_map<int64_t, int> counts_;
    std::unordered_map<std::string, int64_t> nodes_; // numbers of recently used nodes
};

} // namespace vantro::service::catalogue

#endif
