// Reports changed folders, as far as the kernel watches them.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_WATCHER_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_WATCHER_H

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vantro::service::catalogue {

// A folder by its source and its path below it, "" for the top.
using WatchedFolder = std::pair<int32_t, std::string>;

struct FolderChanges {
    std::set<WatchedFolder> folders;
    std::set<int32_t> sources; // whose directory was removed or unmounted
    bool everything = false;   // the queue overflowed, and some changes were not reported
};

// For one thread, except wake(), which any thread may call.
class Watcher {
  public:
    Watcher();
    ~Watcher();
    Watcher(const Watcher &) = delete;
    Watcher &operator=(const Watcher &) = delete;

    // Watches the folder that is open as `directory` and is at `path`; it may be watched already.
    // False if it cannot be watched.
    bool add(const WatchedFolder &folder, const std::string &path, int directory);
    // Watches one file that can be written under a name outside that folder: the file has several
    // names, or a link leads to it. A change of the file counts as a change of the folder. True if
    // it was not watched for that folder before.
    bool add_file(const WatchedFolder &folder, const std::string &path);
    bool watches(const WatchedFolder &folder) const { return numbers_.count(folder) != 0; }
    // Ends the watches of a folder, of everything below it, and of the files in them.
    void remove(const WatchedFolder &folder);

    // True if the kernel has refused a watch since begin_round(), which precedes a scan of
    // everything.
    bool exhausted() const { return exhausted_; }
    void begin_round() { exhausted_ = false; }

    // Waits for changes, and then until no change has come for `settle`, so that a folder that is
    // being filled is read once. A written file counts as changed when it is closed, or when
    // nothing was written to it for a while, since truncate() closes nothing. Returns early after
    // wake(). A negative timeout waits without limit.
    FolderChanges wait(std::chrono::milliseconds timeout, std::chrono::milliseconds settle);
    void wake();
    // Waits for wake(), at most for `timeout`.
    void rest(std::chrono::milliseconds timeout) const;

  private:
    struct Watched {
        WatchedFolder folder;
        std::string path;
    };

    bool readable(std::chrono::milliseconds timeout, bool &woken) const;
    void read_events(FolderChanges &changes);
    void note(uint32_t mask, const std::string &file, const Watched &watched,
              FolderChanges &changes);
    void note_file(uint32_t mask, int number, FolderChanges &changes);
    void note_quiet(std::chrono::milliseconds quiet, FolderChanges &changes);
    void forget(int number, const WatchedFolder &folder);

    using Clock = std::chrono::steady_clock;

    int descriptor_ = -1;
    int wake_ = -1;
    bool exhausted_ = false;
    std::map<WatchedFolder, int> numbers_;
    // A folder that is in two sources has one watch number and two entries here.
    std::unordered_map<int, std::vector<Watched>> folders_;
    std::unordered_map<int, std::set<WatchedFolder>> files_; // files with their own watch
    // Files that were written and not closed since, by folder and name, with the time of the last
    // write.
    std::map<std::pair<WatchedFolder, std::string>, Clock::time_point> written_;
};

} // namespace vantro::service::catalogue

#endif
