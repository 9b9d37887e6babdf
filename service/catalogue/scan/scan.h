// Compares a directory of music with the catalogue, and corrects the catalogue.
//
// A folder is compared as a whole: the workers read new and changed files, and files that are gone
// are removed. A scan of a whole source does this for every folder, a reported change for one.
//
// Links to files are followed if they stay in the directory. Links to folders are not followed: the
// folder is read at its own place, so a circle of links does no harm. A file that cannot be read is
// left out and named in the log once; the catalogue remembers that.
#ifndef VANTRO_SERVICE_CATALOGUE_SCAN_SCAN_H
#define VANTRO_SERVICE_CATALOGUE_SCAN_SCAN_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

#include "service/catalogue/database/writer.h"
#include "service/catalogue/files/artwork_folder.h"
#include "service/catalogue/files/music_root.h"
#include "service/catalogue/scan/scan_options.h"
#include "service/catalogue/scan/watcher.h"
#include "service/catalogue/scan/workers.h"
#include "service/error.h"

namespace vantro::service::catalogue {

// Deepest nesting that is read. No collection is nested deeper, and paths cannot be much longer.
inline constexpr size_t folder_depth_max = 256;

class Scan {
  public:
    struct Parts {
        Writer &writer;
        Workers &workers;
        Watcher &watcher;
        const ArtworkFolder &artwork;
        std::function<void(int severity, const std::string &line)> log;
        std::function<void(int32_t source)> changed;
        std::function<void(const ScanProgress &)> progress;
        std::function<bool()> stop;
    };

    // `root` is the directory of the source. It outlives the scan, as all parts do. Throws
    // an Error if the directory cannot be opened for now.
    Scan(Parts parts, int32_t source, const std::string &root);

    // Compares `folder` and those folders below it that are not watched, or, with `all`, every
    // folder below it.
    void read(const std::string &folder, bool all);

    // Waits for all work in progress, and commits it. False if the directory itself is gone or the
    // scan was stopped: then no file counted as deleted because it was not seen.
    bool finish();

    // Folders of which a part could not be read for now, because memory or descriptors were short
    // or a read failed. Their entries in the catalogue stay. They should be read again.
    struct Postponed {
        std::set<std::string> folders; // "" is the top, with everything below it
        std::optional<Error> error;    // the last one
        std::string first;             // the first file or folder, for the log
    };
    const Postponed &postponed() const { return postponed_; }

    // The error for which the directory cannot be read. Its entries in the catalogue stay.
    const std::optional<Error> &gone() const { return gone_; }
    bool changed() const { return changed_; } // whether readers see a change
    const ScanProgress &counts() const { return counts_; }

  private:
    struct Folder {
        std::string path; // below the source
        size_t depth = 0;
        bool left_out = false; // so far
    };
    struct Reading; // the state of one folder during its comparison
    struct NamedEntries {
        FileName playlist;
        std::vector<std::pair<std::string, std::string>> entries; // as written, and the path
    };

    std::string absolute(std::string_view folder) const;
    bool root_is_there();
    void visit(const Folder &folder);
    std::optional<Error> read_sheets(Reading &reading, const std::vector<std::string> &names);
    std::string take_sheet(Reading &reading, const std::string &name, CueSheet sheet,
                           const std::vector<std::string> &songs);
    void visit_entry(Reading &reading, const std::string &name);
    void visit_link(Reading &reading, const std::string &name, const struct stat &link);
    void visit_file(Reading &reading, const std::string &name, const std::string &path,
                    struct stat status);
    bool is_known(Reading &reading, const std::string &name, FileStamp stamp,
                  std::vector<std::string> &rows);
    void compare_cover(Reading &reading);
    void forget_unseen(const Reading &reading);
    void leave_out(const FileName &where, FileStamp stamp, std::string_view why);
    void name_left_out(const FileName &where, std::string_view why);
    void leave_out_folder(const Folder &folder, const Error &error);
    void postpone(const std::string &folder, const std::string &path, const Error &error);
    void submit(Job job);
    void take(Done &&done);
    void take_song(Done &&done);
    void take_playlist(Done &&done);
    void commit_when_due();
    void commit();
    void name_broken_entries();

    Parts parts_;
    const int32_t source_;
    const std::string &root_;
    std::shared_ptr<const MusicRoot> top_; // none if the source is gone
    struct stat root_status_ = {};
    std::optional<Error> gone_;
    bool stopped_ = false;
    bool changed_ = false;
    std::vector<Folder> waiting_;
    std::vector<NamedEntries> playlists_;
    Postponed postponed_;
    ScanProgress counts_;
    std::chrono::steady_clock::time_point committed_;
    std::chrono::steady_clock::time_point reported_;
};

} // namespace vantro::service::catalogue

#endif
