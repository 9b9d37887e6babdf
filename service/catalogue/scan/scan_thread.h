// The thread that keeps the catalogue right: it scans every source, then waits for changes.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_SCAN_THREAD_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_SCAN_THREAD_H

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "service/catalogue/database/database.h"
#include "service/catalogue/files/artwork.h"
#include "service/catalogue/scan/scan.h"
#include "service/catalogue/scan/watcher.h"
#include "service/catalogue/store.h"

namespace vantro::service::catalogue {

// A directory of music. Only its status changes, and that by the scanning thread.
struct MusicDirectory {
    int32_t id = 0;
    std::string path;
    std::atomic<int32_t> status = 0;
};

class Scanning {
  public:
    // Borrows the sources and the covers. `reopen` gives the catalogue's file for writing; called
    // with true when the one before turned out to be damaged. `prepare` is called where a source
    // has changed and comes to rest.
    Scanning(const StoreOptions &options, std::vector<std::unique_ptr<MusicDirectory>> &sources,
             const ArtworkFolder &artwork,
             std::function<std::unique_ptr<Database>(bool damaged)> reopen,
             std::function<void(int32_t source)> prepare);
    ~Scanning() { stop(); }

    void start();
    void stop();
    void rescan();
    // How many times the catalogue's file was checked, and replaced where it was damaged.
    int rebuilds() const { return rebuilds_; }
    // Reports damage. `rebuilds` is the value of rebuilds() when the reader opened the file;
    // reports about a file that was checked since are ignored.
    void found_damage(int rebuilds);

  private:
    void run();
    bool rebuild_due() const;
    bool scan_everything();
    bool scan_source(MusicDirectory &source, const std::vector<std::string> &folders);
    void scan_changes(const FolderChanges &changes);
    bool guarded(const std::function<void()> &work);
    void report(const MusicDirectory &source, const Scan &scan, std::chrono::nanoseconds took);
    void set_status(MusicDirectory &source, int32_t status);
    std::chrono::milliseconds time_to_next(std::chrono::steady_clock::time_point last) const;
    MusicDirectory *source_of(int32_t id);

    const StoreOptions &options_;
    std::vector<std::unique_ptr<MusicDirectory>> &sources_;
    const ArtworkFolder &artwork_;
    const std::function<std::unique_ptr<Database>(bool)> reopen_;
    const std::function<void(int32_t)> prepare_;
    Watcher watcher_;
    std::atomic<bool> stop_ = false;
    std::atomic<bool> everything_ = false;
    std::atomic<bool> damaged_ = false;
    std::atomic<int> rebuilds_ = 0;

    std::mutex starting_; // guards thread_
    std::thread thread_;

    // Of the thread alone.
    std::unique_ptr<Database> database_;
    std::unique_ptr<Writer> writer_;
    std::unique_ptr<Workers> workers_;
    std::string failure_; // that was said last
    bool said_exhausted_ = false;
    std::optional<std::chrono::steady_clock::time_point> rebuilt_;
};

} // namespace vantro::service::catalogue

#endif
