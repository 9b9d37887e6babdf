#include "service/catalogue/scan/scan_thread.h"

#include <algorithm>
#include <malloc.h>
#include <utility>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/platform/log.h>

#include "service/catalogue/state_directory.h"
#include "service/catalogue/text/utf8.h"
#include "service/error.h"
#include "service/free_thread.h"

namespace vantro::service::catalogue {

namespace {

// How often a missing directory is checked: no event reports its return.
constexpr auto look_for_gone = std::chrono::seconds(10);

// The shortest time between two checks of the catalogue's file. A check reads all of it, and a disk
// that damages every file would be filled with damaged ones.
constexpr auto check_pause = std::chrono::minutes(1);

// Failed work is tried again after the first pause, then each time after twice the pause, up to the
// second: no event reports that room, memory or descriptors are available again.
constexpr auto first_pause = std::chrono::seconds(1);
constexpr auto last_pause = std::chrono::seconds(10);

// After this many tries, which take about a minute, a source counts as ready although a part of it
// still cannot be read.
constexpr int tries_waited_for = 8;

// The next batch of songs with its covers needs this much room on the disk.
constexpr size_t room_bytes = 256 * 1024;

} // namespace

ScanThread::ScanThread(const ScanOptions &options, MusicSources &sources,
                       const ArtworkFolder &artwork, std::filesystem::path state,
                       std::function<std::unique_ptr<Database>(bool damaged)> reopen,
                       std::function<void(int32_t source)> prepare)
    : options_(options), sources_(sources), artwork_(artwork), state_(std::move(state)),
      reopen_(std::move(reopen)), prepare_(std::move(prepare)) {}

void ScanThread::start() {
    const MutexLock guard(starting_);
    if (!thread_.joinable() && !stop_) {
        started_ = true;
        thread_ = start_free_thread([this] { run(); });
    }
}

void ScanThread::stop() {
    stop_ = true;
    watcher_.wake();
    const MutexLock guard(starting_);
    if (thread_.joinable()) {
        thread_.join();
    }
}

void ScanThread::rescan() {
    everything_ = true;
    watcher_.wake();
}

void ScanThread::rescan(int32_t source, const std::set<std::string> &folders) {
    {
        const MutexLock guard(asked_mutex_);
        asked_[source].insert(folders.begin(), folders.end());
    }
    watcher_.wake();
}

void ScanThread::found_damage(int rebuilds) {
    if (rebuilds != rebuilds_) {
        return; // that file has been checked since
    }
    damaged_ = true;
    watcher_.wake();
}

void ScanThread::run() {
    step_back();
    everything_ = true;
    bool prepared = false;
    while (!stop_) {
        try {
            adopt_sources();
            if (!std::exchange(prepared, true)) {
                for (const auto &[id, source] : adopted_) {
                    prepare_(source->id);
                }
            }
            do_next();
        } catch (const std::exception &) {
            // Lack of memory. The changes that the watches reported are lost, so everything is
            // scanned again.
            everything_ = true;
            watcher_.rest(first_pause);
        }
    }
    workers_.reset();
    writer_.reset();
    database_.reset();
}

// Drops the sources that have gone, and schedules the scans of new ones and those that rescan()
// was called for.
void ScanThread::adopt_sources() {
    const std::vector<MusicPointer> all = sources_.all();
    for (auto each = adopted_.begin(); each != adopted_.end();) {
        if (std::find(all.begin(), all.end(), each->second) != all.end()) {
            ++each;
            continue;
        }
        watcher_.remove({each->first, ""});
        unfinished_.erase(each->first);
        if (options_.progress) {
            ScanProgress ended;
            ended.source = each->first;
            ended.done = true;
            options_.progress(ended);
        }
        each = adopted_.erase(each);
    }
    std::map<int32_t, std::set<std::string>> asked;
    {
        const MutexLock guard(asked_mutex_);
        asked.swap(asked_);
    }
    for (const MusicPointer &source : all) {
        const bool is_new = adopted_.emplace(source->id, source).second;
        Unfinished &unfinished = unfinished_[source->id];
        const std::set<std::string> &folders = asked[source->id];
        if (is_new || !folders.empty()) {
            if (is_new || folders.contains("") || source->status == VANTRO_SOURCE_UNAVAILABLE) {
                unfinished.whole = true;
            } else {
                set_status(*source, VANTRO_SOURCE_SCANNING);
                unfinished.folders.insert(folders.begin(), folders.end());
            }
            next_try_ = Clock::now();
        }
    }
}

void ScanThread::do_next() {
    if (check_due()) {
        check_catalogue();
    }
    if (everything_ || time_to_next().count() == 0) {
        if (everything_.exchange(false) || Clock::now() >= next_round()) {
            scanned_ = Clock::now();
            scan_everything();
        } else {
            scan_unfinished();
        }
    }
    if (stop_ || check_due()) {
        return;
    }
    const FolderChanges changes = watcher_.wait(time_to_next(), options_.settle);
    if (changes.everything) {
        everything_ = true;
    }
    if (!stop_ && !everything_) {
        scan_changes(changes);
    }
}

bool ScanThread::check_due() const {
    return damaged_ && (!checked_ || Clock::now() - *checked_ >= check_pause);
}

void ScanThread::check_catalogue() {
    damaged_ = false;
    checked_ = Clock::now();
    everything_ = true;
    guarded([this] {
        writer_.reset();
        database_.reset();
        database_ = reopen_(true);
        ++rebuilds_;
        damaged_ = false; // readers of the old file may have reported damage meanwhile
    });
}

// The time of the next full scan.
ScanThread::Clock::time_point ScanThread::next_round() const {
    std::chrono::milliseconds every = options_.rescan_every;
    if (watcher_.exhausted()) {
        every = std::min(every, options_.rescan_unwatched);
    }
    const bool gone = std::any_of(adopted_.begin(), adopted_.end(), [](const auto &each) {
        return each.second->status == VANTRO_SOURCE_UNAVAILABLE;
    });
    return scanned_ + (gone ? std::min<std::chrono::milliseconds>(look_for_gone, every) : every);
}

std::chrono::milliseconds ScanThread::time_to_next() const {
    using std::chrono::milliseconds;
    const auto now = Clock::now();
    Clock::time_point due = next_round();
    if (damaged_) {
        due = checked_ ? std::min<Clock::time_point>(due, *checked_ + check_pause) : now;
    }
    if (anything_unfinished()) {
        due = std::min(due, next_try_);
    }
    return std::max(std::chrono::ceil<milliseconds>(due - now), milliseconds(0));
}

bool ScanThread::anything_unfinished() const {
    return std::any_of(unfinished_.begin(), unfinished_.end(),
                       [](const auto &each) { return each.second.any(); });
}

void ScanThread::log(int severity, const std::string &line) const {
    if (options_.log) {
        options_.log(severity, line);
    }
}

void ScanThread::set_status(MusicDirectory &source, int32_t status) {
    if (source.status.exchange(status) != status && options_.changed) {
        options_.changed(source.id);
    }
}

// Returns false if the catalogue's file failed, or memory or another resource was short. Earlier
// commits stay, and the status of `source` stays "scanning".
bool ScanThread::guarded(const std::function<void()> &work, MusicDirectory *source) {
    std::string failure;
    try {
        if (!workers_) {
            const int wanted = options_.scan_threads > 0
                                   ? options_.scan_threads
                                   : static_cast<int>(std::thread::hardware_concurrency());
            workers_ = std::make_unique<Workers>(std::max(wanted, 1), artwork_);
        }
        if (!database_) {
            database_ = reopen_(false);
        }
        if (!writer_) {
            writer_ = std::make_unique<Writer>(*database_);
        }
        work();
        return true;
    } catch (const std::exception &thrown) {
        const Error error = error_of(thrown);
        damaged_ = damaged_ || error.is_damage_of_catalogue();
        failure = log_text(error);
    }
    failing_ = true;
    if (source) { // before the line in the log: a reader of the line then finds the right status
        set_status(*source, VANTRO_SOURCE_SCANNING);
    }
    if (workers_) {
        workers_->abandon();
    }
    // Closing the file undoes uncommitted changes, even if an undo fails.
    writer_.reset();
    database_.reset();
    if (failure != failure_) {
        log(LOG_SEVERITY_ERROR,
            fmt::format(
                "scanning waits: {}; the catalogue stays as it is, and the scan is tried again",
                failure));
    }
    failure_ = failure;
    return false;
}

void ScanThread::scan_everything() {
    watcher_.begin_round();
    failing_ = false;
    for (const auto &[id, source] : adopted_) {
        if (!stop_ && !damaged_) {
            scan_source(*source, {}, true);
        }
    }
    if (watcher_.exhausted() && !std::exchange(said_exhausted_, true)) {
        log(LOG_SEVERITY_WARNING,
            fmt::format("not every folder can be watched (fs.inotify.max_user_watches); "
                        "all are scanned again every {} seconds",
                        options_.rescan_unwatched.count() / 1000));
    }
    plan_next_try(false);
    tidy();
}

// Scans again what a scan did not finish or could not read.
void ScanThread::scan_unfinished() {
    // Without room on the disk, a batch would be read but could not be stored.
    if (failing_ && !has_room(state_, room_bytes)) {
        next_try_ = Clock::now() + first_pause;
        return;
    }
    failing_ = false;
    for (const auto &[id, source] : adopted_) {
        const Unfinished unfinished = unfinished_.at(source->id);
        if (unfinished.any() && !stop_ && !damaged_) {
            scan_source(*source, unfinished.whole ? std::set<std::string>() : unfinished.folders,
                        true);
        }
    }
    plan_next_try(true);
    tidy();
}

void ScanThread::plan_next_try(bool again) {
    if (!anything_unfinished()) {
        tries_ = 0;
        if (!failing_ && !std::exchange(failure_, "").empty()) {
            log(LOG_SEVERITY_INFO, "scanning goes on");
        }
        return;
    }
    tries_ += again || tries_ == 0 ? 1 : 0;
    std::chrono::milliseconds pause = first_pause * (1 << std::min(tries_ - 1, 8));
    // A part of a disk may be permanently unreadable, and each attempt to read it takes long.
    const bool for_good = !failing_ && !short_of_descriptors_ && tries_ > tries_waited_for;
    pause = std::min<std::chrono::milliseconds>(pause,
                                                for_good ? options_.rescan_unwatched : last_pause);
    next_try_ = Clock::now() + pause;
}

void ScanThread::tidy() {
    if (!stop_ && !failing_ && database_) {
        try {
            database_->run("PRAGMA wal_checkpoint(TRUNCATE)");
        } catch (const std::exception &) {
            // The write-ahead log keeps its length; the next scan tries again.
        }
    }
    // Returns the memory of long tags to the system: it is not needed again soon.
    malloc_trim(0);
}

Scan::Parts ScanThread::parts(const MusicDirectory &source) {
    return {*writer_,
            *workers_,
            watcher_,
            artwork_,
            [this](int severity, const std::string &line) { log(severity, line); },
            [this](int32_t id) {
                if (options_.changed) {
                    options_.changed(id);
                }
            },
            [this](const ScanProgress &counts) {
                if (options_.progress) {
                    options_.progress(counts);
                }
            },
            [this, &source] { return stop_ || damaged_ || source.gone; }};
}

// Scans the whole source if no folders are named. With `deep` it scans everything below the
// folders, also those folders that are watched.
void ScanThread::scan_source(MusicDirectory &source, const std::set<std::string> &folders,
                             bool deep) {
    const bool whole = folders.empty();
    const auto began = Clock::now();
    const auto scan_it = [&] {
        writer_->add_source(source.id, source.key);
        Scan scan(parts(source), source.id, source.path);
        if (!scan.gone()) {
            if (whole) {
                set_status(source, VANTRO_SOURCE_SCANNING);
                scan.read("", true);
            }
            for (const std::string &folder : folders) {
                scan.read(folder, deep);
            }
        }
        const bool complete = scan.finish();
        if (scan.gone()) {
            return note_gone(source, scan);
        }
        if (scan.changed()) {
            prepare_(source.id);
        }
        if (complete) {
            return conclude(source, scan, folders, began);
        }
        unfinished_.at(source.id).whole = true;
    };
    if (!guarded(scan_it, &source)) {
        Unfinished &unfinished = unfinished_.at(source.id);
        unfinished.whole = unfinished.whole || whole;
        unfinished.folders.insert(folders.begin(), folders.end());
        plan_next_try(false);
    }
}

void ScanThread::note_gone(MusicDirectory &source, const Scan &scan) {
    if (source.gone) {
        return; // the source is gone: adopt_sources() drops it
    }
    watcher_.remove({source.id, ""});
    unfinished_.at(source.id) = {};
    if (source.status != VANTRO_SOURCE_UNAVAILABLE) {
        log(LOG_SEVERITY_WARNING, fmt::format("{}: {}; its entries in the catalogue stay",
                                              loggable(source.path), scan.gone()->text()));
    }
    set_status(source, VANTRO_SOURCE_UNAVAILABLE);
}

// A scan has come to its end; some folders may be left for later.
void ScanThread::conclude(MusicDirectory &source, const Scan &scan,
                          const std::set<std::string> &folders, Clock::time_point began) {
    Unfinished &unfinished = unfinished_.at(source.id);
    const Scan::Postponed &postponed = scan.postponed();
    if (folders.empty()) {
        const std::string said = unfinished.said;
        unfinished = {};
        unfinished.said = said;
        unfinished.counts = scan.counts();
        unfinished.began = began;
        unfinished.owes_report = true;
    } else {
        for (const std::string &folder : folders) {
            unfinished.folders.erase(folder);
        }
        unfinished.counts.read += scan.counts().read;
        unfinished.counts.left_out += scan.counts().left_out;
    }
    unfinished.folders.insert(postponed.folders.begin(), postponed.folders.end());
    const bool waits = unfinished.whole || (unfinished.any() && tries_ < tries_waited_for);
    set_status(source, waits ? VANTRO_SOURCE_SCANNING : VANTRO_SOURCE_READY);
    if (!postponed.folders.empty()) {
        short_of_descriptors_ = postponed.error->kind() == Error::Kind::descriptors;
        note_postponed(source, unfinished, postponed);
    }
    if (waits) {
        return plan_next_try(false);
    }
    if (!unfinished.any()) {
        unfinished.said.clear();
    }
    if (std::exchange(unfinished.owes_report, false)) {
        report(source, unfinished);
    }
}

void ScanThread::note_postponed(const MusicDirectory &source, Unfinished &unfinished,
                                const Scan::Postponed &postponed) {
    const std::string why = postponed.error->reason();
    if (std::exchange(unfinished.said, why) != why) {
        log(LOG_SEVERITY_WARNING,
            fmt::format("{}: a part cannot be read for now, first '{}': {}; it is tried again",
                        loggable(source.path), loggable(postponed.first), why));
    }
}

void ScanThread::report(const MusicDirectory &source, const Unfinished &finished) {
    ScanProgress counts = finished.counts;
    counts.done = true;
    if (options_.progress) {
        options_.progress(counts);
    }
    const std::chrono::duration<double> took = Clock::now() - finished.began;
    log(LOG_SEVERITY_INFO, fmt::format("{}: {} files, {} of them read, {} left out, in {:.1f} s",
                                       loggable(source.path), counts.seen, counts.read,
                                       counts.left_out, took.count()));
}

void ScanThread::scan_changes(const FolderChanges &changes) {
    for (const auto &[id, source] : adopted_) {
        if (source->status == VANTRO_SOURCE_UNAVAILABLE || changes.sources.count(source->id) != 0) {
            scan_source(*source, {}, true);
            continue;
        }
        std::set<std::string> folders;
        for (const WatchedFolder &folder : changes.folders) {
            if (folder.first == source->id) {
                folders.insert(folder.second);
            }
        }
        if (!folders.empty()) {
            scan_source(*source, folders, false);
        }
    }
}

} // namespace vantro::service::catalogue
