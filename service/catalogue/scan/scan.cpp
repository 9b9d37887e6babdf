#include "service/catalogue/scan/scan.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <optional>
#include <unistd.h>
#include <unordered_map>

#include <fmt/format.h>

#include <vantro/platform/log.h>

#include "service/catalogue/cover.h"
#include "service/catalogue/scan/folder.h"
#include "service/catalogue/scan/reading.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

namespace {

using std::chrono::steady_clock;

// A scan commits its results at this interval, or after this many changes.
constexpr auto commit_every = std::chrono::milliseconds(500);
constexpr int commit_changes = 1000;

constexpr auto report_every = std::chrono::seconds(10);

// The number of broken entries of one playlist that are logged one by one.
constexpr size_t broken_named_max = 20;

} // namespace

Scan::Scan(Parts parts, int32_t source, const std::string &root)
    : parts_(std::move(parts)), source_(source), root_(root), committed_(steady_clock::now()),
      reported_(committed_) {
    counts_.source = source;
    try {
        top_ = std::make_shared<const MusicRoot>(root);
    } catch (const Error &error) {
        if (error.is_want()) {
            throw;
        }
        gone_ = Error(error.origin(), error.code());
        return;
    }
    fstat(top_->descriptor(), &root_status_);
    if (is_empty(*top_)) {
        // The mount point of an unmounted disk is empty too: keep the catalogue's entries.
        const KnownFolder known = parts_.writer.known(source, "");
        if (!known.files.empty() || !known.folders.empty()) {
            gone_ = Error(Error::Origin::music, ENOENT, "has become empty");
        }
    }
}

std::string Scan::absolute(std::string_view folder) const {
    return path_below(root_, folder);
}

bool Scan::root_is_there() {
    struct stat now = {};
    errno = 0;
    if (stat(root_.c_str(), &now) == 0 && now.st_dev == root_status_.st_dev &&
        now.st_ino == root_status_.st_ino) {
        return true;
    }
    if (const int error = errno; Error(Error::Origin::music, error).is_want()) {
        throw Error::failed(Error::Origin::music, error, loggable(root_) + " cannot be examined");
    }
    gone_ = Error(Error::Origin::music, ENOENT, "has vanished");
    return false;
}

void Scan::read(const std::string &folder, bool all) {
    const size_t depth =
        folder.empty() ? 0 : 1 + static_cast<size_t>(std::count(folder.begin(), folder.end(), '/'));
    waiting_.push_back({folder, depth, false});
    bool first = true;
    while (!waiting_.empty() && !gone_) {
        if (parts_.stop()) {
            stopped_ = true;
            break;
        }
        const Folder next = std::move(waiting_.back());
        waiting_.pop_back();
        if (first || all || !parts_.watcher.watches({source_, next.path})) {
            visit(next);
        }
        first = false;
    }
    waiting_.clear();
}

void Scan::visit(const Folder &folder) {
    if (folder.depth > folder_depth_max) {
        return leave_out(place_of(source_, folder.path), {}, "is nested too deeply");
    }
    const Directory directory = open_folder(*top_, folder.path);
    if (!directory) {
        const Error error(Error::Origin::music, errno);
        if (!root_is_there()) {
            return;
        }
        if (error.kind() == Error::Kind::gone && !folder.path.empty()) {
            parts_.writer.remove_folder(source_, folder.path);
        } else {
            leave_out_folder(folder, error);
        }
        return;
    }
    // Watch first, then read: a change in between is then noticed twice, not missed.
    parts_.watcher.add({source_, folder.path}, absolute(folder.path), dirfd(directory.get()));
    Reading reading{folder, directory.get(), parts_.writer.known(source_, folder.path)};
    std::vector<std::string> names;
    const std::optional<Error> error = list(directory.get(), names);
    if (const std::optional<Error> passing = read_sheets(reading, names)) {
        // Without its sheets the folder would seem changed.
        return leave_out_folder(folder, *passing);
    }
    for (const std::string &name : names) {
        visit_entry(reading, name);
        if (gone_ || parts_.stop()) {
            stopped_ = true;
            return;
        }
    }
    if (error) {
        return leave_out_folder(folder, *error);
    }
    forget_unseen(reading);
    if (gone_) {
        return;
    }
    if (reading.failure) {
        leave_out_folder(folder, *reading.failure);
    } else if (folder.left_out) {
        parts_.writer.remove_file(place_of(source_, folder.path));
    }
    compare_cover(reading);
    std::move(reading.folders.rbegin(), reading.folders.rend(), std::back_inserter(waiting_));
    commit_when_due();
}

void Scan::visit_entry(Reading &reading, const std::string &name) {
    struct stat status = {};
    if (fstatat(dirfd(reading.directory), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) {
            return; // gone already
        }
        reading.failure = Error(Error::Origin::music, errno);
        reading.keep(name); // counts as seen
        reading.known.folders.erase(name);
        return;
    }
    if (S_ISDIR(status.st_mode)) {
        reading.known.folders.erase(name);
        const bool left_out = reading.known.files.erase(name) != 0;
        reading.folders.push_back(
            {path_below(reading.folder.path, name), reading.folder.depth + 1, left_out});
    } else if (S_ISLNK(status.st_mode)) {
        visit_link(reading, name, status);
    } else if (S_ISREG(status.st_mode)) {
        visit_file(reading, name, path_below(reading.folder.path, name), status);
    } else if (has_audio_name(name)) {
        reading.known.files.erase(name);
        leave_out(reading.named(name, source_), stamp_of(status), "is not a regular file");
    }
}

void Scan::visit_link(Reading &reading, const std::string &name, const struct stat &link) {
    const FileName where = reading.named(name, source_);
    const bool of_interest = has_audio_name(name) || has_playlist_name(name);
    const auto refuse = [&](std::string_view why) {
        reading.known.files.erase(name);
        leave_out(where, stamp_of(link), why);
    };
    struct stat target = {};
    if (fstatat(dirfd(reading.directory), name.c_str(), &target, 0) != 0) {
        const Error error(Error::Origin::music, errno);
        if (error.is_passing()) {
            reading.keep(name);
            postpone(where.folder, path_below(where.folder, name), error);
        } else if (error.code() == ELOOP || of_interest) {
            refuse(error.code() == ENOENT ? "is a link that leads nowhere" : error.text());
        }
        return;
    }
    if (!S_ISDIR(target.st_mode) && !of_interest) {
        return;
    }
    const std::string path = path_below(where.folder, name);
    const std::optional<std::string> inside = top_->target_of(path);
    if (!inside && errno != EXDEV) {
        if (const Error error(Error::Origin::music, errno); error.is_passing()) {
            reading.keep(name);
            postpone(where.folder, path, error);
        }
        return; // gone already
    }
    if (!inside) {
        refuse("is a link that leads out of the directory");
    } else if (S_ISDIR(target.st_mode)) {
        refuse("is a link to a folder, which is read at its own place");
    } else if (S_ISREG(target.st_mode)) {
        visit_file(reading, name, *inside, target);
    } else {
        refuse("is not a regular file");
    }
}

// `path` is the path of the file itself. `name` is its name, or that of the link to it.
void Scan::visit_file(Reading &reading, const std::string &name, const std::string &path,
                      struct stat status) {
    const bool song = has_audio_name(name);
    // This file can change without a report about the folder. Watch first, then read.
    const std::string plain = path_below(reading.folder.path, name);
    if ((status.st_nlink > 1 || path != plain) && (song || has_playlist_name(name)) &&
        parts_.watcher.add_file({source_, reading.folder.path},
                                fmt::format("/proc/self/fd/{}/{}", top_->descriptor(), path))) {
        fstatat(top_->descriptor(), path.c_str(), &status, AT_SYMLINK_NOFOLLOW);
    }
    const FileStamp stamp = stamp_of(status);
    reading.cover.offer(name, path, stamp);
    if (!song && !has_playlist_name(name)) {
        return;
    }
    if (song) {
        reading.has_songs = true;
        ++counts_.seen;
    }
    std::vector<std::string> rows;
    if (is_known(reading, name, stamp, rows)) {
        return;
    }
    const auto sheet = reading.sheets.find(name);
    submit({song ? Job::Kind::song : Job::Kind::playlist, reading.named(name, source_), top_, path,
            stamp, sheet != reading.sheets.end() ? sheet->second : nullptr, std::move(rows)});
}

void Scan::compare_cover(Reading &reading) {
    const KnownFolder &known = reading.known;
    const FolderCover::Picture *cover = reading.cover.chosen();
    if (!reading.has_songs || !cover) {
        if (!known.image.empty()) {
            parts_.writer.remove_image(source_, reading.folder.path);
        }
        return;
    }
    if (cover->name != known.image || cover->stamp != known.image_stamp) {
        submit({Job::Kind::image, reading.named(cover->name, source_), top_, cover->path,
                cover->stamp});
    }
}

void Scan::forget_unseen(const Reading &reading) {
    const KnownFolder &known = reading.known;
    if (known.files.empty() && known.folders.empty()) {
        return;
    }
    // While a directory is being unmounted or removed, its entries disappear one by one.
    if (!root_is_there()) {
        return;
    }
    for (const auto &[name, file] : known.files) {
        parts_.writer.remove_file(reading.named(name, source_));
    }
    for (const std::string &name : known.folders) {
        parts_.writer.remove_folder(source_, path_below(reading.folder.path, name));
    }
}

void Scan::leave_out(const FileName &where, FileStamp stamp, std::string_view why) {
    ++counts_.left_out;
    if (parts_.writer.leave_out(where, stamp, why)) {
        name_left_out(where, why);
    }
}

void Scan::name_left_out(const FileName &where, std::string_view why) {
    const std::string path = absolute(path_below(where.folder, where.file));
    parts_.log(LOG_SEVERITY_WARNING, fmt::format("left out: {}: {}", loggable(path), why));
}

// The folder's entries in the catalogue stay: it may be unreadable only for now.
void Scan::leave_out_folder(const Folder &folder, const Error &error) {
    if (error.is_passing()) {
        postpone(folder.path, folder.path, error);
    } else {
        leave_out(place_of(source_, folder.path), {}, error.text());
    }
}

void Scan::postpone(const std::string &folder, const std::string &path, const Error &error) {
    if (postponed_.folders.empty()) {
        postponed_.first = path;
    }
    postponed_.folders.insert(folder);
    postponed_.error = error;
}

void Scan::submit(Job job) {
    while (!parts_.workers.offer(job)) {
        if (std::optional<Done> done = parts_.workers.take(true)) {
            take(std::move(*done));
        }
    }
    while (std::optional<Done> done = parts_.workers.take(false)) {
        take(std::move(*done));
    }
}

void Scan::take(Done &&done) {
    const FileName &where = done.job.where;
    if (done.failure && done.failure->is_passing()) {
        return postpone(where.folder, path_below(where.folder, where.file), *done.failure);
    }
    if (done.failure && done.failure->origin() != Error::Origin::music) {
        throw *done.failure;
    }
    switch (done.job.kind) {
    case Job::Kind::song:
        take_song(std::move(done));
        break;
    case Job::Kind::image:
        if (done.failure && done.failure->code() == ENOENT) {
            break; // gone already
        }
        // A picture that cannot be used is remembered too, or every scan would read it.
        parts_.writer.put_image(where, done.job.stamp, done.artwork);
        if (done.failure) {
            name_left_out(where, done.failure->text());
        }
        break;
    case Job::Kind::playlist:
        take_playlist(std::move(done));
        break;
    }
    commit_when_due();
}

void Scan::take_playlist(Done &&done) {
    const FileName &where = done.job.where;
    if (done.failure) {
        return leave_out(where, {done.playlist.modified_ns, done.playlist.size},
                         done.failure->text());
    }
    NamedEntries named{where, {}};
    std::vector<std::string> paths;
    for (std::string &entry : done.playlist.entries) {
        const std::optional<std::string> path = resolve_entry(entry, where.folder, root_);
        if (path) {
            paths.push_back(*path);
        }
        named.entries.emplace_back(std::move(entry), path.value_or(""));
    }
    parts_.writer.put_playlist(where, done.playlist, paths);
    playlists_.push_back(std::move(named));
}

void Scan::commit_when_due() {
    const auto now = steady_clock::now();
    if (parts_.writer.pending() >= commit_changes ||
        (parts_.writer.pending() > 0 && now - committed_ >= commit_every)) {
        commit();
    }
    if (now - reported_ >= report_every) {
        reported_ = now;
        parts_.log(LOG_SEVERITY_INFO, fmt::format("{}: {} files so far, {} of them read",
                                                  loggable(root_), counts_.seen, counts_.read));
    }
}

void Scan::commit() {
    const std::vector<int32_t> sources = parts_.writer.commit();
    committed_ = steady_clock::now();
    parts_.progress(counts_);
    for (const int32_t source : sources) {
        changed_ = true;
        parts_.changed(source);
    }
}

bool Scan::finish() {
    if (gone_ || stopped_) {
        parts_.workers.abandon();
        commit();
        return false;
    }
    while (std::optional<Done> done = parts_.workers.take(true)) {
        if (parts_.stop()) {
            stopped_ = true;
            return finish();
        }
        take(std::move(*done));
    }
    commit();
    if (!changed_ && !parts_.writer.unsettled(source_)) {
        return true;
    }
    name_broken_entries();
    parts_.writer.settle(source_);
    commit();
    parts_.artwork.sweep(
        [this](const std::string &file) { return parts_.writer.has_artwork(file); });
    return true;
}

void Scan::name_broken_entries() {
    for (const NamedEntries &each : playlists_) {
        const std::string playlist =
            loggable(absolute(path_below(each.playlist.folder, each.playlist.file)));
        size_t broken = 0;
        for (const auto &[entry, path] : each.entries) {
            if (!path.empty() && parts_.writer.has_song(source_, path)) {
                continue;
            }
            if (++broken <= broken_named_max) {
                parts_.log(LOG_SEVERITY_WARNING,
                           fmt::format("left out: {}: '{}' is not a song of this directory",
                                       playlist, loggable(entry)));
            }
        }
        if (broken > broken_named_max) {
            parts_.log(LOG_SEVERITY_WARNING,
                       fmt::format("left out: {}: {} more entries that are not songs", playlist,
                                   broken - broken_named_max));
        }
    }
}

} // namespace vantro::service::catalogue
