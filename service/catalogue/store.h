// The catalogue in a file, which is filled by scanning directories of music.
//
// Its file is `catalogue.db` in the state directory; covers lie beside it in `artwork/`. If the
// file is damaged or has another version, it is moved aside, never over an earlier one, and made
// again. The catalogue and the covers can be deleted while no service runs: node ids and uids are
// digests of paths and names, and will be the same.
#ifndef VANTRO_SERVICE_CATALOGUE_STORE_H
#define VANTRO_SERVICE_CATALOGUE_STORE_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "service/catalogue/catalogue.h"
#include "service/catalogue/files/artwork_folder.h"
#include "service/catalogue/query/song_files.h"
#include "service/catalogue/scan/scan_options.h"
#include "service/error.h"

namespace vantro::service::catalogue {

struct StoreOptions : ScanOptions {
    std::filesystem::path state;              // made if it is missing
    std::vector<std::filesystem::path> music; // one source each
    std::vector<std::filesystem::path> roots; // of sources that come and go
    ArtworkReaders artwork_readers;           // everything else is the service's own
};

class Store : public Catalogue {
  public:
    // The files of songs, in the order of `ids`; the uid of a song that is gone is empty. Returns 0
    // or EIO.
    virtual int song_files(const std::vector<SongId> &ids, std::vector<LocatedSong> &files) = 0;
    // The songs that `names` name, in their order; a song with id 0 for a name without a song.
    // Returns 0 or EIO.
    virtual int find_songs(const std::vector<SongName> &names, std::vector<QueuedSong> &songs) = 0;

    // The number of songs of all_songs(); 0 if the catalogue's file fails.
    virtual int64_t song_count() = 0;

    // Starts scanning, in separate threads. Committed data can always be read.
    virtual void start_scanning() = 0;
    // Ends the scan, within the time that reading one file takes. The scan's results stay. The
    // destructor calls this too. Any thread may call it, also before start_scanning().
    virtual void stop_scanning() = 0;
    // Replaces StoreOptions::music and StoreOptions::roots from now on. New directories are
    // scanned; removed ones are no longer sources, but their entries are kept. Returns at once. Any
    // thread.
    virtual void set_music(const std::vector<std::filesystem::path> &music,
                           const std::vector<std::filesystem::path> &roots) = 0;
};

// Opens or makes the catalogue. Fails if the state directory cannot be used, or another process
// uses it.
Result<std::unique_ptr<Store>> open_store(StoreOptions options);

} // namespace vantro::service::catalogue

#endif
