// Songs by their files, for playlists outside the catalogue: the numbers of songs and sources
// become invalid when the catalogue is made again, these names do not.
#ifndef VANTRO_SERVICE_CATALOGUE_QUERY_SONG_FILES_H
#define VANTRO_SERVICE_CATALOGUE_QUERY_SONG_FILES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "service/catalogue/catalogue.h"
#include "service/catalogue/database/database.h"

namespace vantro::service::catalogue {

// A song and its file.
struct LocatedSong {
    std::string uid;  // of the source
    std::string node; // the song's id there, a digest of its path below the source
    std::string path; // the bytes of the absolute path
    std::string title;
    std::string artist;
    int32_t duration_ms = 0;
};

// The name of a song: uid and node as in LocatedSong, "" if unknown, and the entry of a playlist
// file, which is used if uid and node find no song. The texts are borrowed.
struct SongName {
    std::string_view uid;
    std::string_view node;
    std::string_view entry;
};

// The uid of the source of a directory.
std::string uid_of(std::string_view directory);

// The uid is empty if the song is gone.
LocatedSong file_of(Database &database, SongId song);

// Finds songs in sources. It must live within one transaction.
class SongFinder {
  public:
    struct Where {
        int32_t source = 0;
        std::string uid;
        std::string directory;
    };

    explicit SongFinder(Database &database) : database_(database) {}
    void add(Where where) { sources_.push_back(std::move(where)); }

    // The id is 0 if there is no such song now.
    QueuedSong find(const SongName &name);

  private:
    QueuedSong by_key(int32_t source, int64_t key);

    Database &database_;
    std::vector<Where> sources_;
};

} // namespace vantro::service::catalogue

#endif
