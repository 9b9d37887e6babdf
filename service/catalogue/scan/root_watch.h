// Keeps the list of sources consistent with the folders of the media roots and with the wanted
// directories of music, and notices mounts and unmounts. It has a separate thread, which sleeps
// until the kernel reports a change: a scan may take minutes or wait for a disk, and meanwhile
// sources must be able to come and go.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_ROOT_WATCH_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_ROOT_WATCH_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/locks.h"
#include "service/catalogue/scan/mounts.h"
#include "service/catalogue/scan/music_sources.h"

namespace vantro::service::catalogue {

// More directories of music than anyone has, and few enough that the list of sources fits the 65536
// bytes that clients have room for.
inline constexpr size_t sources_max = 32;

class RootWatch {
  public:
    struct Calls {
        std::function<void(int32_t source)> changed; // a source has come or gone
        std::function<void()> sources_changed; // sources have come or gone, or need another scan
        std::function<void(const MusicPointer &source)> remounted;
        std::function<void(int severity, const std::string &line)> log;
    };

    // All directories and roots that are wanted, by canonical paths.
    struct Music {
        std::vector<std::string> directories;
        std::vector<std::string> roots;
    };

    // Borrows the sources, which have the directories of music already. Throws an Error.
    RootWatch(MusicSources &sources, std::vector<std::string> roots, Calls calls);
    ~RootWatch();
    RootWatch(const RootWatch &) = delete;
    RootWatch &operator=(const RootWatch &) = delete;

    // Compares once. Call it only before start().
    void look();
    void start() EXCLUDES(starting_);
    // Any thread; also before start().
    void stop() EXCLUDES(starting_);
    // Watches other music from the next look on. Any thread.
    void set_music(Music wanted) EXCLUDES(wanted_mutex_);

  private:
    void run();
    void wake();
    void wait(int timeout_ms);
    void take_wanted() EXCLUDES(wanted_mutex_);
    bool compare_roots(const Mounts &mounts);
    void compare_mounts(const Mounts &mounts);
    void remove_absent(const std::vector<RootFolder> &found, bool &changed);
    void add(const std::string &path, const std::string &key, int32_t type, bool &changed);
    void watch_roots();

    MusicSources &sources_;
    const Calls calls_;
    int mountinfo_ = -1;
    int inotify_ = -1;
    int wake_ = -1;
    std::atomic<bool> stop_ = false;
    Mutex starting_;
    std::thread thread_ GUARDED_BY(starting_);
    Mutex wanted_mutex_;
    std::optional<Music> wanted_ GUARDED_BY(wanted_mutex_);

    // Used by the thread only, once it runs.
    std::vector<std::string> roots_;
    std::set<int> watches_; // of the roots
    // Set when the wanted directories differ from those at the start.
    std::optional<std::vector<std::string>> directories_;
    Mounts mounts_;
    bool looked_ = false;
    bool unwatched_ = false;             // a root is missing or cannot be watched
    std::set<std::string> mount_points_; // below the roots, formerly mounted
    std::set<std::string> said_;         // paths that were reported as left out
};

} // namespace vantro::service::catalogue

#endif
