// The thread that keeps the catalogue up to date: it scans every source, then waits for changes.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_SCAN_THREAD_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_SCAN_THREAD_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/locks.h"
#include "service/catalogue/database/database.h"
#include "service/catalogue/files/artwork_folder.h"
#include "service/catalogue/scan/music_sources.h"
#include "service/catalogue/scan/scan.h"
#include "service/catalogue/scan/scan_options.h"
#include "service/catalogue/scan/watcher.h"

namespace vantro::service::catalogue {

class ScanThread {
  public:
    // Borrows the sources and the covers. `state` is the directory with the catalogue's file and
    // the covers. `reopen` returns the catalogue's file, open for writing; it is called with true
    // if the present file seems damaged. `prepare` is called after a scan that has changed a
    // source.
    ScanThread(const ScanOptions &options, MusicSources &sources, const ArtworkFolder &artwork,
               std::filesystem::path state,
               std::function<std::unique_ptr<Database>(bool damaged)> reopen,
               std::function<void(int32_t source)> prepare);
    ~ScanThread() { stop(); }

    void start();
    bool started() const { return started_; }
    void stop();
    void rescan();
    // Scans these folders of a source soon, with everything below them; "" is the whole source.
    void rescan(int32_t source, const std::set<std::string> &folders) EXCLUDES(asked_mutex_);
    // The list of sources has changed.
    void look_at_sources() { watcher_.wake(); }
    // The number of times that the catalogue's file was checked, and replaced if it was damaged.
    int rebuilds() const { return rebuilds_; }
    // Reports damage. `rebuilds` is the value of rebuilds() when the reader opened the file;
    // reports about a file that was checked since are ignored.
    void found_damage(int rebuilds);

  private:
    using Clock = std::chrono::steady_clock;

    // The part of a source that a scan could not read or keep. The source's status is "scanning"
    // until that part has been read, or has been tried so often that clients should not wait for
    // it.
    struct Unfinished {
        bool whole = false;            // a scan of the whole source stopped early
        std::set<std::string> folders; // that should be read again
        ScanProgress counts;           // of the scan that could not read them
        Clock::time_point began;
        bool owes_report = false; // the end of the scan has not been reported
        std::string said;         // the reason that was logged last
        bool any() const { return whole || !folders.empty(); }
    };

    void run();
    void adopt_sources() EXCLUDES(asked_mutex_);
    void do_next();
    void check_catalogue();
    bool check_due() const;
    void scan_everything();
    void scan_unfinished();
    void scan_changes(const FolderChanges &changes);
    void scan_source(MusicDirectory &source, const std::set<std::string> &folders, bool deep);
    void conclude(MusicDirectory &source, const Scan &scan, const std::set<std::string> &folders,
                  Clock::time_point began);
    void note_gone(MusicDirectory &source, const Scan &scan);
    void note_postponed(const MusicDirectory &source, Unfinished &unfinished,
                        const Scan::Postponed &postponed);
    void plan_next_try(bool again);
    bool guarded(const std::function<void()> &work, MusicDirectory *source = nullptr);
    void tidy();
    Scan::Parts parts(const MusicDirectory &source);
    void report(const MusicDirectory &source, const Unfinished &finished);
    void set_status(MusicDirectory &source, int32_t status);
    Clock::time_point next_round() const;
    std::chrono::milliseconds time_to_next() const;
    bool anything_unfinished() const;
    void log(int severity, const std::string &line) const;

    const ScanOptions &options_;
    MusicSources &sources_;
    const ArtworkFolder &artwork_;
    const std::filesystem::path state_;
    const std::function<std::unique_ptr<Database>(bool)> reopen_;
    const std::function<void(int32_t)> prepare_;
    Watcher watcher_;
    std::atomic<bool> stop_ = false;
    std::atomic<bool> started_ = false;
    std::atomic<bool> everything_ = false;
    std::atomic<bool> damaged_ = false;
    std::atomic<int> rebuilds_ = 0;

    Mutex starting_;
    std::thread thread_ GUARDED_BY(starting_);

    Mutex asked_mutex_;
    std::map<int32_t, std::set<std::string>> asked_ GUARDED_BY(asked_mutex_); // by rescan()

    // Used only by the thread.
    std::map<int32_t, MusicPointer> adopted_; // the sources that it works on
    std::unique_ptr<Database> database_;
    std::unique_ptr<Writer> writer_;
    std::unique_ptr<Workers> workers_;
    std::map<int32_t, Unfinished> unfinished_; // by source; an entry for each
    Clock::time_point scanned_;                // the time of the last full scan
    Clock::time_point next_try_;               // for the unfinished sources
    int tries_ = 0;                            // since something became unfinished
    bool failing_ = false;                     // the last try ended with a failure
    bool short_of_descriptors_ = false;
    std::string failure_; // that was logged last
    bool said_exhausted_ = false;
    std::optional<Clock::time_point> checked_;
};

} // namespace vantro::service::catalogue

#endif
