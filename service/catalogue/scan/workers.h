// Threads that read files for the scan.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_WORKERS_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_WORKERS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/locks.h"
#include "service/catalogue/files/artwork_folder.h"
#include "service/catalogue/files/catalogued_song.h"
#include "service/catalogue/files/cue_sheet.h"
#include "service/catalogue/files/music_root.h"
#include "service/catalogue/files/playlist_file.h"
#include "service/error.h"

namespace vantro::service::catalogue {

struct Job {
    enum class Kind { song, image, playlist };
    Kind kind = Kind::song;
    FileName where;
    std::shared_ptr<const MusicRoot> root;
    std::string path;                           // below the root; of a link, where it leads
    FileStamp stamp;                            // before it is read
    std::shared_ptr<const CueSheet> sheet = {}; // beside the song
    std::vector<std::string> known = {};        // what the catalogue has of this file so far
};

struct Done {
    Job job;
    // Why there is none. If the music is not the reason, and it may not pass, as with a full disk,
    // then no result can be kept at all, and the scan ends.
    std::optional<Error> failure;
    FoundSong song;
    std::vector<FoundSong> tracks; // of a cue sheet: they take the song's place
    std::string sheet_failure;     // why a sheet was not used; "" where it was, or there is none
    PlaylistFile playlist;
    std::optional<Artwork> artwork;
};

class Workers {
  public:
    Workers(int threads, const ArtworkFolder &artwork);
    ~Workers();
    Workers(const Workers &) = delete;
    Workers &operator=(const Workers &) = delete;

    // False if so many jobs are under way that a result must be taken first.
    bool offer(Job &job) EXCLUDES(mutex_);
    // The next result, in the order of the offers, so that the catalogue does not depend on which
    // file was read faster. Nothing if that result is not ready, or, with `wait`, if no job is
    // under way.
    std::optional<Done> take(bool wait) EXCLUDES(mutex_);
    // Drops all jobs and results.
    void abandon() EXCLUDES(mutex_);

  private:
    void work() EXCLUDES(mutex_);

    const ArtworkFolder &artwork_;
    const size_t jobs_max_;
    Mutex mutex_;
    Condition jobs_changed_;
    Condition done_changed_;
    // Jobs that were not begun, with their numbers.
    std::deque<std::pair<uint64_t, Job>> jobs_ GUARDED_BY(mutex_);
    // One for each job that is under way.
    std::deque<std::optional<Done>> results_ GUARDED_BY(mutex_);
    uint64_t first_ GUARDED_BY(mutex_) = 0; // the number of the first of them
    size_t running_ GUARDED_BY(mutex_) = 0;
    bool ending_ GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_;
};

// Gives the calling thread a low priority.
void step_back();

} // namespace vantro::service::catalogue

#endif
