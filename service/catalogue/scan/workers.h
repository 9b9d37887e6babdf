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
#include "service/catalogue/files/file_failure.h"
#include "service/catalogue/files/music_root.h"
#include "service/catalogue/files/playlist_file.h"

namespace vantro::service::catalogue {

struct Job {
    enum class Kind { song, image, playlist };
    Kind kind = Kind::song;
    FileName where;
    std::shared_ptr<const MusicRoot> root;
    std::string path; // below the root; of a link, where it leads
    FileStamp stamp;  // before it is read
};

struct Done {
    Job job;
    FileFailure failure;
    std::string no_room; // why nothing can be kept at all: the scan ends
    FoundSong song;
    PlaylistFile playlist;
    std::optional<Artwork> artwork;
};

class Workers {
  public:
    Workers(int threads, const ArtworkFolder &artwork);
    ~Workers();
    Workers(const Workers &) = delete;
    Workers &operator=(const Workers &) = delete;

    // False where so much is under way that a result should be taken first.
    bool offer(Job &job) EXCLUDES(mutex_);
    // The next result, in the order of the offers, so that what a collection becomes does not hang
    // on which file was read faster. Nothing where it is not there yet, or, with `wait`, where
    // nothing is under way.
    std::optional<Done> take(bool wait) EXCLUDES(mutex_);
    // Forgets all that is under way.
    void abandon() EXCLUDES(mutex_);

  private:
    void work() EXCLUDES(mutex_);

    const ArtworkFolder &artwork_;
    const size_t jobs_max_;
    Mutex mutex_;
    Condition jobs_changed_;
    Condition done_changed_;
    // Not begun, with their numbers.
    std::deque<std::pair<uint64_t, Job>> jobs_ GUARDED_BY(mutex_);
    // One for each job that is under way.
    std::deque<std::optional<Done>> results_ GUARDED_BY(mutex_);
    uint64_t first_ GUARDED_BY(mutex_) = 0; // the number of the first of them
    size_t running_ GUARDED_BY(mutex_) = 0;
    bool ending_ GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_;
};

// Lets everything else go first on the thread that calls it.
void step_back();

} // namespace vantro::service::catalogue

#endif
