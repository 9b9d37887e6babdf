#include "service/catalogue/scan/scan_thread.h"

#include <algorithm>
#include <malloc.h>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/platform/log.h>

#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

namespace {

using std::chrono::steady_clock;

// A directory that is gone is looked for this often; nothing tells when it comes back.
constexpr auto look_for_gone = std::chrono::seconds(10);

// A disk that damages every file would otherwise be filled with them.
constexpr auto rebuild_pause = std::chrono::minutes(1);

} // namespace

Scanning::Scanning(const StoreOptions &options,
                   std::vector<std::unique_ptr<MusicDirectory>> &sources,
                   const ArtworkFolder &artwork,
                   std::function<std::unique_ptr<Database>(bool damaged)> reopen,
                   std::function<void(int32_t source)> prepare)
    : options_(options), sources_(sources), artwork_(artwork), reopen_(std::move(reopen)),
      prepare_(std::move(prepare)) {}

void Scanning::start() {
    const std::lock_guard<std::mutex> guard(starting_);
    if (!thread_.joinable() && !stop_) {
        thread_ = std::thread([this] { run(); });
    }
}

void Scanning::stop() {
    stop_ = true;
    watcher_.wake();
    const std::lock_guard<std::mutex> guard(starting_);
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Scanning::rescan() {
    everything_ = true;
    watcher_.wake();
}

void Scanning::found_damage(int rebuilds) {
    if (rebuilds != rebuilds_) {
        return; // it has been dealt with
    }
    damaged_ = true;
    watcher_.wake();
}

void Scanning::run() {
    step_back();
    const int wanted = options_.scan_threads > 0
                           ? options_.scan_threads
                           : static_cast<int>(std::thread::hardware_concurrency());
    workers_ = std::make_unique<Workers>(std::max(wanted, 1), artwork_);
    try {
        for (const auto &source : sources_) {
            prepare_(source->id);
        }
    } catch (const std::exception &) {
        // What is not prepared is made when it is asked for.
    }
    everything_ = true;
    steady_clock::time_point last;
    while (!stop_) {
        if (rebuild_due()) {
            damaged_ = false;
            rebuilt_ = steady_clock::now();
            guarded([this] {
                writer_.reset();
                database_.reset();
                database_ = reopen_(true);
                ++rebuilds_;
                damaged_ = false; // readers of the old file may have said so again
            });
            everything_ = true;
        }
        if (everything_.exchange(false) || time_to_next(last).count() == 0) {
            scan_everything();
            last = steady_clock::now();
        }
        if (stop_ || rebuild_due()) {
            continue;
        }
        const FolderChanges changes = watcher_.wait(time_to_next(last), options_.settle);
        if (stop_ || everything_ || rebuild_due()) {
            continue;
        }
        if (changes.everything) {
            everything_ = true;
        } else {
            scan_changes(changes);
        }
    }
    workers_.reset();
    writer_.reset();
    database_.reset();
}

bool Scanning::rebuild_due() const {
    return damaged_ && (!rebuilt_ || steady_clock::now() - *rebuilt_ >= rebuild_pause);
}

std::chrono::milliseconds Scanning::time_to_next(steady_clock::time_point last) const {
    const bool gone = std::any_of(sources_.begin(), sources_.end(), [](const auto &source) {
        return source->status == VANTRO_SOURCE_UNAVAILABLE;
    });
    std::chrono::milliseconds every = options_.rescan_every;
    if (watcher_.exhausted() || !failure_.empty()) {
        every = std::min(every, options_.rescan_unwatched);
    }
    const auto due = last + every - steady_clock::now();
    auto left =
        std::max(std::chrono::ceil<std::chrono::milliseconds>(due), std::chrono::milliseconds(0));
    if (damaged_) {
        left = std::min<std::chrono::milliseconds>(left, rebuild_pause);
    }
    if (gone) {
        left = std::min(left, std::min<std::chrono::milliseconds>(look_for_gone, every));
    }
    return left;
}

MusicDirectory *Scanning::source_of(int32_t id) {
    for (const auto &source : sources_) {
        if (source->id == id) {
            return source.get();
        }
    }
    return nullptr;
}

void Scanning::set_status(MusicDirectory &source, int32_t status) {
    if (source.status.exchange(status) != status && options_.changed) {
        options_.changed(source.id);
    }
}

// Returns false where the catalogue's file failed. What was committed before stays.
bool Scanning::guarded(const std::function<void()> &work) {
    std::string failure;
    try {
        if (!database_) {
            database_ = reopen_(false);
        }
        if (!writer_) {
            writer_ = std::make_unique<Writer>(*database_);
        }
        work();
    } catch (const DatabaseError &error) {
        failure = fmt::format("the catalogue {}", error.what());
        damaged_ = damaged_ || error.damaged();
    } catch (const std::exception &error) {
        failure = error.what();
    }
    if (failure.empty()) {
        return true;
    }
    workers_->abandon();
    if (writer_) {
        writer_->undo();
    }
    if (failure != failure_ && options_.log) {
        options_.log(LOG_SEVERITY_ERROR,
                     fmt::format("scanning stops until the next rescan: {}", failure));
    }
    failure_ = failure;
    return false;
}

bool Scanning::scan_everything() {
    bool good = true;
    for (const auto &source : sources_) {
        good = !stop_ && !damaged_ && scan_source(*source, {}) && good;
    }
    if (watcher_.exhausted() && !std::exchange(said_exhausted_, true) && options_.log) {
        options_.log(LOG_SEVERITY_WARNING,
                     fmt::format("not every folder can be watched (fs.inotify.max_user_watches); "
                                 "all are looked at again every {} seconds",
                                 options_.rescan_unwatched.count() / 1000));
    }
    if (good && !stop_) {
        failure_.clear(); // here alone: a part that went well says nothing of the others
        guarded([this] { database_->run("PRAGMA wal_checkpoint(TRUNCATE)"); });
    }
    // What long tags took is not needed again soon.
    malloc_trim(0);
    return good;
}

// The source as a whole where no folders are named.
bool Scanning::scan_source(MusicDirectory &source, const std::vector<std::string> &folders) {
    const bool whole = folders.empty();
    const bool was_gone = source.status == VANTRO_SOURCE_UNAVAILABLE;
    const auto began = steady_clock::now();
    const bool good = guarded([&] {
        Scan scan({*writer_, *workers_, watcher_, artwork_,
                   [this](int severity, const std::string &line) {
                       if (options_.log) {
                           options_.log(severity, line);
                       }
                   },
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
                   [this] { return stop_ || damaged_; }},
                  source.id, source.path);
        if (!scan.gone()) {
            if (whole) {
                set_status(source, VANTRO_SOURCE_SCANNING);
            }
            if (whole) {
                scan.read("", true);
            }
            for (const std::string &folder : folders) {
                scan.read(folder, false);
            }
        }
        const bool complete = scan.finish();
        if (scan.gone()) {
            watcher_.remove({source.id, ""});
            if (!was_gone && options_.log) {
                options_.log(LOG_SEVERITY_WARNING,
                             fmt::format("{}: {}; what is known of it stays",
                                         clean_text(source.path, path_text_max), scan.why_gone()));
            }
            set_status(source, VANTRO_SOURCE_UNAVAILABLE);
            return;
        }
        if (scan.changed()) {
            prepare_(source.id);
        }
        set_status(source, VANTRO_SOURCE_READY);
        if (complete && whole) {
            report(source, scan, steady_clock::now() - began);
        }
    });
    if (!good && source.status == VANTRO_SOURCE_SCANNING) {
        set_status(source, VANTRO_SOURCE_READY);
    }
    return good;
}

void Scanning::report(const MusicDirectory &source, const Scan &scan,
                      std::chrono::nanoseconds took) {
    ScanProgress counts = scan.counts();
    counts.done = true;
    if (options_.progress) {
        options_.progress(counts);
    }
    if (options_.log) {
        options_.log(LOG_SEVERITY_INFO,
                     fmt::format("{}: {} files, {} of them read, {} left out, in {:.1f} s",
                                 clean_text(source.path, path_text_max), counts.seen, counts.read,
                                 counts.left_out, std::chrono::duration<double>(took).count()));
    }
}

void Scanning::scan_changes(const FolderChanges &changes) {
    for (const auto &source : sources_) {
        if (source->status == VANTRO_SOURCE_UNAVAILABLE || changes.sources.count(source->id) != 0) {
            scan_source(*source, {});
            continue;
        }
        std::vector<std::string> folders;
        for (const WatchedFolder &folder : changes.folders) {
            if (folder.first == source->id) {
                folders.push_back(folder.second);
            }
        }
        if (!folders.empty()) {
            scan_source(*source, folders);
        }
    }
}

} // namespace vantro::service::catalogue
