// Songs by their files, as playlists name them outside the catalogue: numbers of songs and of
// sources end with the catalogue's file, these names do not.
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

// What names a song: uid and node as in LocatedSong, "" if they are not known, and the entry of
// a playlist file, which is looked for after those. The texts are borrowed.
struct SongName {
    std::string_view uid;
    std::string_view node;
    std::string_view entry;
};

// The uid of the source of a directory.
std::string uid_of(std::string_view directory);

// Without uid if the song is gone.
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

    // With id 0 if there is no such song now.
    QueuedSong find(const SongName &name);

  private:
    QueuedSong by_key(int32_t source, int64_t key);

    Database &database_;
    std::vector<Where> sources_;
};

} // namespace vantro::service::catalogue

#endif
