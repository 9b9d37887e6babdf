// The only file that uses inotify.
#include "service/catalogue/scan/watcher.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "service/error.h"

namespace vantro::service::catalogue {

namespace {

constexpr uint32_t watched_events = IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_FROM |
                                    IN_MOVED_TO | IN_DELETE | IN_ATTRIB | IN_DELETE_SELF |
                                    IN_MOVE_SELF | IN_ONLYDIR;

constexpr uint32_t watched_events_of_files =
    IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF | IN_DONT_FOLLOW;

// Most files with their own watch. In some collections every file has several names, and the kernel
// limits the number of watches.
constexpr size_t files_max = 4096;

// A folder that keeps changing is read after this many times `settle`.
constexpr int settle_max = 10;

// A new regular file is read when its writer closes it. Links, and further names of a file, are
// complete at once.
bool comes_whole(const std::string &path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && (!S_ISREG(status.st_mode) || status.st_nlink > 1);
}

// Whether the folder is `top` or below it.
bool is_in(const WatchedFolder &folder, const WatchedFolder &top) {
    const std::string &path = folder.second;
    const std::string &above = top.second;
    return folder.first == top.first &&
           (above.empty() || (path.starts_with(above) &&
                              (path.size() == above.size() || path[above.size()] == '/')));
}

} // namespace

Watcher::Watcher()
    : descriptor_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wake_ < 0) {
        const int error = errno;
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
        throw Error::failed(Error::Origin::system, error, "cannot wait for changes");
    }
}

Watcher::~Watcher() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
    close(wake_);
}

bool Watcher::add(const WatchedFolder &folder, const std::string &path, int directory) {
    if (descriptor_ < 0) { // inotify was not available before
        descriptor_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    }
    // Through its descriptor, since another folder may be at the path by now.
    const std::string opened = fmt::format("/proc/self/fd/{}", directory);
    int number =
        descriptor_ < 0 ? -1 : inotify_add_watch(descriptor_, opened.c_str(), watched_events);
    if (number < 0 && descriptor_ >= 0 && errno == ENOENT) { // /proc is not there
        number = inotify_add_watch(descriptor_, path.c_str(), watched_events);
    }
    if (number < 0) {
        exhausted_ = true;
        return false;
    }
    // A folder that was moved keeps its number.
    std::vector<Watched> &names = folders_[number];
    const auto old = std::find_if(names.begin(), names.end(), [&](const Watched &each) {
        return each.folder.first == folder.first;
    });
    if (old != names.end()) {
        numbers_.erase(old->folder);
        *old = {folder, path};
    } else {
        names.push_back({folder, path});
    }
    numbers_[folder] = number;
    return true;
}

bool Watcher::add_file(const WatchedFolder &folder, const std::string &path) {
    if (descriptor_ < 0 || files_.size() >= files_max) {
        return false;
    }
    const int number = inotify_add_watch(descriptor_, path.c_str(), watched_events_of_files);
    return number >= 0 && files_[number].insert(folder).second;
}

void Watcher::forget(int number, const WatchedFolder &folder) {
    const auto found = folders_.find(number);
    if (found == folders_.end()) {
        return;
    }
    std::vector<Watched> &names = found->second;
    names.erase(std::remove_if(names.begin(), names.end(),
                               [&](const Watched &each) { return each.folder == folder; }),
                names.end());
    if (!names.empty()) {
        return;
    }
    inotify_rm_watch(descriptor_, number);
    folders_.erase(found);
}

void Watcher::remove(const WatchedFolder &folder) {
    for (auto each = numbers_.lower_bound(folder);
         each != numbers_.end() && each->first.first == folder.first;) {
        if (!each->first.second.starts_with(folder.second)) {
            break;
        }
        if (is_in(each->first, folder)) {
            forget(each->second, each->first);
            each = numbers_.erase(each);
        } else {
            ++each;
        }
    }
    for (auto file = files_.begin(); file != files_.end();) {
        std::erase_if(file->second, [&](const auto &each) { return is_in(each, folder); });
        if (file->second.empty()) {
            inotify_rm_watch(descriptor_, file->first);
            file = files_.erase(file);
        } else {
            ++file;
        }
    }
}

bool Watcher::readable(std::chrono::milliseconds timeout, bool &woken) const {
    pollfd polled[] = {{wake_, POLLIN, 0}, {descriptor_, POLLIN, 0}};
    const auto wait_ms = std::min<int64_t>(timeout.count(), INT32_MAX);
    if (poll(polled, 2, timeout.count() < 0 ? -1 : static_cast<int>(wait_ms)) <= 0) {
        return false;
    }
    uint64_t count = 0;
    woken = (polled[0].revents & POLLIN) != 0 && read(wake_, &count, sizeof count) > 0;
    return (polled[1].revents & POLLIN) != 0;
}

FolderChanges Watcher::wait(std::chrono::milliseconds timeout, std::chrono::milliseconds settle) {
    const auto quiet = settle * settle_max;
    FolderChanges changes;
    bool woken = false;
    if (!written_.empty() && (timeout.count() < 0 || timeout > quiet)) {
        timeout = quiet;
    }
    if (!readable(timeout, woken)) {
        note_quiet(quiet, changes);
        return changes;
    }
    const auto latest = std::chrono::steady_clock::now() + quiet;
    do {
        read_events(changes);
    } while (!woken && std::chrono::steady_clock::now() < latest && readable(settle, woken));
    note_quiet(quiet, changes);
    return changes;
}

void Watcher::note_quiet(std::chrono::milliseconds quiet, FolderChanges &changes) {
    const Clock::time_point now = Clock::now();
    for (auto each = written_.begin(); each != written_.end();) {
        if (now - each->second >= quiet) {
            changes.folders.insert(each->first.first);
            each = written_.erase(each);
        } else {
            ++each;
        }
    }
}

void Watcher::note_file(uint32_t mask, int number, FolderChanges &changes) {
    const auto found = files_.find(number);
    if (found == files_.end()) {
        return;
    }
    for (const WatchedFolder &folder : found->second) {
        if (mask == IN_MODIFY) {
            written_[{folder, ""}] = Clock::now();
        } else {
            changes.folders.insert(folder);
        }
    }
    if ((mask & IN_IGNORED) != 0) {
        files_.erase(found);
    }
}

void Watcher::read_events(FolderChanges &changes) {
    alignas(inotify_event) char buffer[16 * 1024];
    ssize_t size = 0;
    while ((size = read(descriptor_, buffer, sizeof buffer)) > 0) {
        for (ssize_t at = 0; at < size;) {
            inotify_event event = {};
            std::memcpy(&event, buffer + at, sizeof event);
            const char *name = buffer + at + sizeof event;
            at += static_cast<ssize_t>(sizeof event + event.len);
            if ((event.mask & IN_Q_OVERFLOW) != 0) {
                changes.everything = true;
            }
            const auto found = folders_.find(event.wd);
            if (found == folders_.end()) {
                note_file(event.mask, event.wd, changes);
                continue;
            }
            const std::vector<Watched> names = found->second;
            if ((event.mask & IN_IGNORED) != 0) {
                folders_.erase(found);
                for (const Watched &watched : names) {
                    if (const auto number = numbers_.find(watched.folder);
                        number != numbers_.end() && number->second == event.wd) {
                        numbers_.erase(number);
                    }
                }
                continue;
            }
            for (const Watched &watched : names) {
                note(event.mask, event.len > 0 ? name : "", watched, changes);
            }
        }
    }
}

void Watcher::note(uint32_t mask, const std::string &file, const Watched &watched,
                   FolderChanges &changes) {
    const bool top = watched.folder.second.empty();
    if ((mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) != 0) {
        // The end of any other folder is reported by the folder above it.
        if (top || (mask & IN_UNMOUNT) != 0) {
            changes.sources.insert(watched.folder.first);
        }
        if (top) {
            remove(watched.folder);
        }
        return;
    }
    const bool folder = (mask & IN_ISDIR) != 0;
    if (folder && !file.empty() && (mask & (IN_MOVED_FROM | IN_DELETE)) != 0) {
        remove({watched.folder.first, top ? file : watched.folder.second + '/' + file});
    }
    if (mask == IN_MODIFY) {
        written_[{watched.folder, file}] = Clock::now();
        return;
    }
    written_.erase({watched.folder, file});
    if ((mask & IN_CREATE) != 0 && !folder && !comes_whole(watched.path + '/' + file)) {
        return;
    }
    changes.folders.insert(watched.folder);
}

void Watcher::rest(std::chrono::milliseconds timeout) const {
    pollfd polled = {wake_, POLLIN, 0};
    poll(&polled, 1, static_cast<int>(timeout.count()));
}

void Watcher::wake() {
    const uint64_t one = 1;
    // The write fails only if the counter is full, and then the reader wakes as well.
    [[maybe_unused]] const ssize_t written = write(wake_, &one, sizeof one);
}

} // namespace vantro::service::catalogue
