// The catalogue that is kept in a file and filled by scanning directories of music.
//
// Its file is `catalogue.db` in the state directory; covers lie beside it in `artwork/`. A
// catalogue that is damaged or of another version is moved aside, never over an earlier one, and
// made anew. Everything in the state directory can be deleted while no service runs: node ids and
// uids are made of what they name and come out the same.
#ifndef VANTRO_SERVICE_CATALOGUE_STORE_H
#define VANTRO_SERVICE_CATALOGUE_STORE_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "service/catalogue/catalogue.h"
#include "service/catalogue/files/artwork_folder.h"
#include "service/catalogue/scan/scan_options.h"

namespace vantro::service::catalogue {

struct StoreOptions : ScanOptions {
    std::filesystem::path state;              // made where it is missing
    std::vector<std::filesystem::path> music; // one source each
    ArtworkReaders artwork_readers;           // everything else is the service's own
};

class Store : public Catalogue {
  public:
    // How many songs all_songs() gives; 0 where the catalogue's file fails.
    virtual int64_t song_count() = 0;

    // Begins to scan in threads of its own; what has been committed can be read all the time.
    virtual void start_scanning() = 0;
    // Ends that, within a file's reading time. Called by the destructor as well. What the scan had
    // found stays. May be called by any thread, also when nothing was started.
    virtual void stop_scanning() = 0;
    // Has everything looked at again, soon.
    virtual void rescan() = 0;
};

// Opens or makes the catalogue. Returns nothing, and in `wrong` why, where the state directory
// cannot be had or another process uses it.
std::unique_ptr<Store> open_store(StoreOptions options, std::string &wrong);

// $XDG_STATE_HOME/vantro, else ~/.local/state/vantro; empty where neither is known.
std::filesystem::path default_state_directory();

} // namespace vantro::service::catalogue

#endif
