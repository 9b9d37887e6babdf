#include "service/catalogue/scan/workers.h"

#include <cerrno>
#include <exception>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

#include "service/catalogue/files/file_stream.h"

namespace vantro::service::catalogue {

namespace {

// Enough that no thread waits while the scan writes, and few enough that the results of files with
// the longest tags fit in memory.
constexpr size_t jobs_a_thread = 64;

constexpr int niceness = 10;

std::optional<Error> read_image(const Job &job, std::string &bytes) {
    FileStream stream(*job.root, job.path, job.where.file);
    if (stream.failure()) {
        return stream.failure();
    }
    if (static_cast<size_t>(stream.length()) > picture_bytes_max) {
        return Error::damage(Error::Origin::music, "is too large for a cover");
    }
    const TagLib::ByteVector all = stream.readBlock(picture_bytes_max);
    bytes.assign(all.data(), all.size());
    return stream.failure();
}

// Replaces the song by the tracks of the sheet beside the file, or else of the sheet in it.
void cut(Done &done) {
    std::optional<CueSheet> inside;
    const CueSheet *sheet = done.job.sheet.get();
    SongFile &song = done.song.song;
    const std::string text = std::move(song.cue_sheet);
    if (!sheet && !text.empty()) {
        Result<CueSheet> parsed = parse_cue_sheet(text);
        if (!parsed) {
            done.sheet_failure = parsed.error().text();
            return;
        }
        inside = std::move(*parsed);
        inside->digest = -inside->digest;
        sheet = &*inside;
    }
    if (!sheet) {
        return;
    }
    std::optional<std::vector<FoundSong>> tracks = cut_by_sheet(done.song, *sheet);
    if (!tracks) {
        song.sheet = sheet->digest;
        done.sheet_failure = "is not used: a track begins after the end of the file";
        return;
    }
    done.tracks = std::move(*tracks);
    for (FoundSong &track : done.tracks) {
        complete(track);
    }
}

void carry_out(Done &done, const ArtworkFolder &artwork) {
    const Job &job = done.job;
    std::string bytes;
    switch (job.kind) {
    case Job::Kind::song:
        done.song.where = job.where;
        done.failure = read_song(*job.root, job.path, job.where.file, done.song.song);
        if (!done.failure) {
            bytes.swap(done.song.song.picture);
            done.song.artwork = artwork.keep(bytes);
            cut(done);
            if (done.tracks.empty()) {
                complete(done.song);
            }
        }
        break;
    case Job::Kind::image:
        done.failure = read_image(job, bytes);
        if (!done.failure) {
            done.artwork = artwork.keep(bytes);
            if (!done.artwork) {
                done.failure =
                    Error::damage(Error::Origin::music, "is not a picture that can be used");
            }
        }
        break;
    case Job::Kind::playlist:
        done.failure = read_playlist(*job.root, job.path, job.where.file, done.playlist);
        break;
    }
}

// Never fails: lack of memory is a result like others, and its error needs no memory.
Done result_of(Job &&job, const ArtworkFolder &artwork) {
    Done done;
    done.job = std::move(job);
    try {
        carry_out(done, artwork);
    } catch (Error &error) {
        done.failure = std::move(error);
    } catch (const std::exception &) {
        done.failure = Error(Error::Origin::system, ENOMEM);
    }
    return done;
}

} // namespace

void step_back() {
    // If the kernel refuses, the scan runs at the same priority as other work; that is not a
    // failure.
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), niceness);
}

Workers::Workers(int threads, const ArtworkFolder &artwork)
    : artwork_(artwork), jobs_max_(jobs_a_thread * static_cast<size_t>(threads)) {
    try {
        for (int i = 0; i < threads; ++i) {
            threads_.emplace_back([this] { work(); });
        }
    } catch (const std::system_error &) {
        if (threads_.empty()) { // fewer threads suffice, but at least one is needed
            throw;
        }
    }
}

Workers::~Workers() {
    {
        const MutexLock guard(mutex_);
        ending_ = true;
        jobs_.clear();
    }
    jobs_changed_.notify_all();
    for (std::thread &thread : threads_) {
        thread.join();
    }
}

void Workers::work() {
    step_back();
    MutexLock lock(mutex_);
    for (;;) {
        while (!ending_ && jobs_.empty()) {
            jobs_changed_.wait(mutex_);
        }
        if (ending_) {
            return;
        }
        auto [number, job] = std::move(jobs_.front());
        jobs_.pop_front();
        ++running_;
        lock.unlock();
        Done done = result_of(std::move(job), artwork_);
        lock.lock();
        --running_;
        results_[number - first_] = std::move(done);
        done_changed_.notify_one();
    }
}

bool Workers::offer(Job &job) {
    {
        const MutexLock guard(mutex_);
        if (results_.size() >= jobs_max_) {
            return false;
        }
        jobs_.emplace_back(first_ + results_.size(), std::move(job));
        results_.emplace_back();
    }
    jobs_changed_.notify_one();
    return true;
}

std::optional<Done> Workers::take(bool wait) {
    const MutexLock lock(mutex_);
    while (wait && !results_.empty() && !results_.front()) {
        done_changed_.wait(mutex_);
    }
    if (results_.empty() || !results_.front()) {
        return std::nullopt;
    }
    std::optional<Done> done = std::move(results_.front());
    results_.pop_front();
    ++first_;
    return done;
}

void Workers::abandon() {
    const MutexLock lock(mutex_);
    jobs_.clear();
    while (running_ != 0) {
        done_changed_.wait(mutex_);
    }
    first_ += results_.size();
    results_.clear();
}

} // namespace vantro::service::catalogue
