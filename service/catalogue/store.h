// The catalogue that is kept in a file and filled by scanning directories of music.
//
// Its file is `catalogue.db` in the state directory; covers lie beside it in `artwork/`. A
// catalogue that is damaged or of another version is moved aside, never over an earlier one, and
// made anew. Everything in the state directory can be deleted while no service runs: node ids and
// uids are made of what they name and come out the same.
#ifndef VANTRO_SERVICE_CATALOGUE_STORE_H
#define VANTRO_SERVICE_CATALOGUE_STORE_H

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "service/catalogue/catalogue.h"

namespace vantro::service::catalogue {

// How far the scan of one source has come.
struct ScanProgress {
    int32_t source = 0;
    int64_t seen = 0;     // files of music that were found so far
    int64_t read = 0;     // those of them that were new or changed, and have been read
    int64_t left_out = 0; // those of them that cannot be played
    bool done = false;
};

struct StoreOptions {
    std::filesystem::path state;              // made where it is missing
    std::vector<std::filesystem::path> music; // one source each
    int scan_threads = 0;                     // 0: one for each processor

    // Everything is looked at again this often although the watches report changes: they miss what
    // happens on another machine's side of a network directory. Where watches ran out, more often.
    std::chrono::milliseconds rescan_every = std::chrono::hours(1);
    std::chrono::milliseconds rescan_unwatched = std::chrono::minutes(5);
    // How long a changed directory must have been quiet before it is read again.
    std::chrono::milliseconds settle = std::chrono::milliseconds(300);

    // Takes one line for the log; severities are those of <vantro/platform/log.h>. Any thread.
    std::function<void(int severity, const std::string &line)> log;
    // Both are called by the scanning thread, with nothing locked, and should return soon.
    std::function<void(const ScanProgress &)> progress; // about once a second, and at the end
    std::function<void(int32_t source)> changed;        // after a commit, or when `status` changed
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
