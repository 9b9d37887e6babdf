#include "service/catalogue/scan/root_watch.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/platform/log.h>

#include "service/catalogue/text/utf8.h"
#include "service/error.h"
#include "service/free_thread.h"

namespace vantro::service::catalogue {

namespace {

constexpr uint32_t root_events = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                 IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// Changes come in bursts; they are handled together this long after the first one.
constexpr int settle_ms = 100;

// How often a missing or unwatchable root is checked.
constexpr int unwatched_ms = 1000;

constexpr size_t source_name_max = 960;

bool at_or_below(const std::string &path, const std::string &top) {
    return path == top || top == "/" ||
           (path.size() > top.size() && path[top.size()] == '/' &&
            path.compare(0, top.size(), top) == 0);
}

std::string last_part(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

} // namespace

RootWatch::RootWatch(MusicSources &sources, std::vector<std::string> roots, Calls calls)
    : sources_(sources), calls_(std::move(calls)),
      mountinfo_(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)),
      inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), roots_(std::move(roots)) {}

RootWatch::~RootWatch() {
    stop();
    for (const int each : {mountinfo_, inotify_, wake_}) {
        if (each >= 0) {
            close(each);
        }
    }
}

void RootWatch::start() {
    const MutexLock guard(starting_);
    if (!thread_.joinable() && !stop_) {
        thread_ = start_free_thread([this] { run(); });
    }
}

void RootWatch::stop() {
    stop_ = true;
    wake();
    const MutexLock guard(starting_);
    if (thread_.joinable()) {
        thread_.join();
    }
}

void RootWatch::wake() {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(wake_, &one, sizeof one);
}

void RootWatch::set_music(Music wanted) {
    {
        const MutexLock guard(wanted_mutex_);
        wanted_ = std::move(wanted);
    }
    wake();
}

void RootWatch::take_wanted() {
    const MutexLock guard(wanted_mutex_);
    if (wanted_) {
        roots_.swap(wanted_->roots);
        directories_ = std::move(wanted_->directories);
        wanted_.reset();
    }
}

void RootWatch::run() {
    while (!stop_) {
        try {
            look();
            wait(unwatched_ ? unwatched_ms : -1);
        } catch (const std::exception &) { // lack of memory
            wait(unwatched_ms);
        }
    }
}

void RootWatch::wait(int timeout_ms) {
    pollfd polled[] = {{wake_, POLLIN, 0}, {inotify_, POLLIN, 0}, {mountinfo_, POLLPRI, 0}};
    if (poll(polled, 3, timeout_ms) > 0 && !stop_) {
        poll(polled, 1, settle_ms);
    }
    uint64_t wakes = 0;
    [[maybe_unused]] const ssize_t woken = read(wake_, &wakes, sizeof wakes);
    char events[4096];
    while (inotify_ >= 0 && read(inotify_, events, sizeof events) > 0) {
    }
}

void RootWatch::look() {
    take_wanted();
    watch_roots(); // watch first, then read
    Mounts mounts = read_mounts(mountinfo_);
    const bool changed = compare_roots(mounts);
    if (looked_) {
        compare_mounts(mounts);
    }
    looked_ = true;
    mounts_ = std::move(mounts);
    if (changed) {
        calls_.sources_changed();
    }
}

void RootWatch::watch_roots() {
    std::set<int> wanted; // two roots that are the same folder share a watch
    unwatched_ = false;
    for (const std::string &root : roots_) {
        const int watch =
            inotify_ < 0 ? -1 : inotify_add_watch(inotify_, root.c_str(), root_events);
        if (watch >= 0) {
            wanted.insert(watch);
        } else {
            unwatched_ = true;
        }
    }
    // Watches of roots that were removed from the options, and of folders that were moved.
    for (const int watch : watches_) {
        if (wanted.count(watch) == 0) {
            inotify_rm_watch(inotify_, watch);
        }
    }
    watches_ = std::move(wanted);
}

// Whether the list of sources has changed.
bool RootWatch::compare_roots(const Mounts &mounts) {
    std::vector<RootFolder> found;
    for (const std::string &root : roots_) {
        list_root(root, mounts, found);
    }
    std::set<std::string> keys;
    for (auto each = found.begin(); each != found.end();) {
        if (each->mounted) {
            mount_points_.insert(each->path);
        } else if (mount_points_.count(each->path) != 0 && is_empty_folder(each->path)) {
            each = found.erase(each); // the mount point of an unmounted volume
            continue;
        }
        if (!keys.insert(each->key).second) {
            each->key = "folder:" + each->path; // the same volume a second time
        }
        ++each;
    }
    bool changed = false;
    remove_absent(found, changed);
    for (const std::string &path : directories_.value_or(std::vector<std::string>())) {
        add(path, path, VANTRO_SOURCE_DIRECTORY, changed);
    }
    for (const RootFolder &folder : found) {
        add(folder.path, folder.key, VANTRO_SOURCE_REMOVABLE, changed);
    }
    return changed;
}

void RootWatch::remove_absent(const std::vector<RootFolder> &found, bool &changed) {
    for (const MusicPointer &source : sources_.all()) {
        const bool there =
            source->type == VANTRO_SOURCE_REMOVABLE
                ? std::any_of(found.begin(), found.end(),
                              [&](const RootFolder &each) {
                                  return each.path == source->path && each.key == source->key;
                              })
                : !directories_ || std::find(directories_->begin(), directories_->end(),
                                             source->path) != directories_->end();
        if (!there) {
            sources_.remove(source);
            changed = true;
            calls_.log(LOG_SEVERITY_NOTICE,
                       fmt::format("{}: has gone; its entries in the catalogue are kept",
                                   loggable(source->path)));
            calls_.changed(source->id);
        }
    }
}

void RootWatch::add(const std::string &path, const std::string &key, int32_t type, bool &changed) {
    const std::vector<MusicPointer> all = sources_.all();
    const auto any = [&all](const auto &is) { return std::any_of(all.begin(), all.end(), is); };
    if (any([&](const auto &each) { return each->path == path; })) {
        return;
    }
    if (all.size() >= sources_max) {
        if (said_.insert(path).second) {
            calls_.log(LOG_SEVERITY_WARNING, fmt::format("{}: left out: there are {} sources",
                                                         loggable(path), sources_max));
        }
        return;
    }
    said_.erase(path);
    auto source = std::make_shared<MusicDirectory>();
    source->id = sources_.number_of(key);
    source->path = path;
    source->key = key;
    source->name = clean_text(path == "/" ? path : last_part(path), source_name_max);
    if (any([&](const auto &each) { return each->name == source->name; })) {
        source->name = clean_text(path, source_name_max);
    }
    source->type = type;
    source->status = VANTRO_SOURCE_SCANNING;
    sources_.add(source);
    changed = true;
    calls_.log(LOG_SEVERITY_NOTICE,
               fmt::format("{}: is a source, number {}", loggable(path), source->id));
    calls_.changed(source->id);
}

// Sources at, above or below which something was mounted or unmounted are scanned again.
void RootWatch::compare_mounts(const Mounts &mounts) {
    std::set<std::string> points;
    const auto note = [&points](const Mounts &these, const Mounts &others) {
        for (const auto &[point, mount] : these) {
            const auto other = others.find(point);
            if (other == others.end() || !(other->second == mount)) {
                points.insert(point);
            }
        }
    };
    note(mounts, mounts_);
    note(mounts_, mounts);
    for (const MusicPointer &source : sources_.all()) {
        if (std::any_of(points.begin(), points.end(), [&](const std::string &point) {
                return at_or_below(point, source->path) || at_or_below(source->path, point);
            })) {
            calls_.remounted(source);
        }
    }
}

} // namespace vantro::service::catalogue
