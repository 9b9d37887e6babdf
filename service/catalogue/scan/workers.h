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
    std::string path;                           // below the root; for a link, that of its target
    FileStamp stamp;                            // before it is read
    std::shared_ptr<const CueSheet> sheet = {}; // the sheet beside the song
    std::vector<std::string> known = {};        // the catalogue's present entries of this file
};

struct Done {
    Job job;
    // The reason for which there is no song. If the cause is not the music and not temporary, such
    // as a full disk, no result can be stored at all, and the scan ends.
    std::optional<Error> failure;
    FoundSong song;
    std::vector<FoundSong> tracks; // of a cue sheet: they replace the song
    std::string sheet_failure;     // the reason for which a sheet was not used; "" if it was, or if
                                   // there is none
    PlaylistFile playlist;
    std::optional<Artwork> artwork;
};

class Workers {
  public:
    Workers(int threads, const ArtworkFolder &artwork);
    ~Workers();
    Workers(const Workers &) = delete;
    Workers &operator=(const Workers &) = delete;

    // False if so many jobs are in progress that a result must be taken first.
    bool offer(Job &job) EXCLUDES(mutex_);
    // The next result, in the order of the offers, so that the catalogue does not depend on which
    // file was read faster. Nothing if that result is not ready, or, with `wait`, if no job is in
    // progress.
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
    // Jobs that have not been started, with their numbers.
    std::deque<std::pair<uint64_t, Job>> jobs_ GUARDED_BY(mutex_);
    // One for each job in progress.
    std::deque<std::optional<Done>> results_ GUARDED_BY(mutex_);
    uint64_t first_ GUARDED_BY(mutex_) = 0; // the number of the first result
    size_t running_ GUARDED_BY(mutex_) = 0;
    bool ending_ GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_;
};

// Gives the calling thread a low priority.
void step_back();

} // namespace vantro::service::catalogue

#endif
