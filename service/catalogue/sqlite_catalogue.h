// The catalogue in a SQLite file: the directories of music, with the scan and the watch that keep
// the catalogue up to date (store.cpp), and the queries (sqlite_queries.cpp).
#ifndef VANTRO_SERVICE_CATALOGUE_SQLITE_CATALOGUE_H
#define VANTRO_SERVICE_CATALOGUE_SQLITE_CATALOGUE_H

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <vantro/platform/log.h>

#include "service/catalogue/database/connection_pool.h"
#include "service/catalogue/files/artwork_folder.h"
#include "service/catalogue/query/list_cache.h"
#include "service/catalogue/query/source_browser.h"
#include "service/catalogue/scan/root_watch.h"
#include "service/catalogue/scan/scan_thread.h"
#include "service/catalogue/state_directory.h"
#include "service/catalogue/store.h"

namespace vantro::service::catalogue {

class SqliteCatalogue : public Store {
  public:
    SqliteCatalogue(StoreOptions options, std::unique_ptr<StateDirectory> state)
        : options_(std::move(options)), state_(std::move(state)),
          file_(options_.state / "catalogue.db"),
          artwork_(options_.state / "artwork", options_.artwork_readers),
          sessions_(options_.state / "session-numbers"), pool_(file_),
          scanning_(
              options_, directories_, artwork_, options_.state,
              [this](bool damaged) { return reopen(damaged); },
              [this](int32_t source) { prepare(source); }) {}
    ~SqliteCatalogue() override { stop_scanning(); }

    // Throws an Error.
    void open();

    std::vector<Source> sources() override;
    int browse(int32_t source, std::string_view node, Range range, NodeSink &nodes) override;
    int search(int32_t source, std::string_view filter, std::string_view term, Range range,
               NodeSink &nodes) override;
    int metadata(int32_t source, std::string_view node,
                 std::optional<SongMetadata> &metadata) override;
    int describe(const std::vector<Node> &nodes, std::vector<SongMetadata> &metadata) override;
    int extended_metadata(int32_t source, std::string_view node,
                          const std::vector<std::string_view> &keys,
                          std::vector<std::string> &values) override;
    int songs(int32_t source, std::string_view node, std::vector<QueuedSong> &songs) override;
    int all_songs(std::vector<QueuedSong> &songs) override;
    int song_nodes(const SongId *ids, size_t count, NodeSink &nodes) override;
    int song(SongId id, Node &node, SongMetadata &metadata) override;
    int32_t check(SongId id) override;
    int open(SongId id) override;
    std::optional<SongPart> part(SongId id) override;
    int32_t take_session_ids(int32_t count) override { return sessions_.take(count); }

    int song_files(const std::vector<SongId> &ids, std::vector<LocatedSong> &files) override;
    int find_songs(const std::vector<SongName> &names, std::vector<QueuedSong> &songs) override;
    int64_t song_count() override;
    void start_scanning() override {
        scanning_.start();
        roots_->start();
    }
    void stop_scanning() override {
        if (roots_) {
            roots_->stop();
        }
        scanning_.stop();
    }
    void rescan() override { scanning_.rescan(); }
    int rescan_node(int32_t source, std::string_view node) override;
    void set_music(const std::vector<std::filesystem::path> &music,
                   const std::vector<std::filesystem::path> &roots) override;

  private:
    template <typename Read>
    std::optional<Error> attempt(const Read &read);
    template <typename Read>
    int guarded(const Read &read);
    template <typename Read>
    int at_node(int32_t source, std::string_view node, const Read &read);
    MusicPointer directory(int32_t source) const { return directories_.find(source); }
    void watch_roots();
    Node song_node(SourceBrowser &browser, SongId song) const;
    std::optional<Error> locate(SongId id, MusicPointer &source, std::string &path);
    std::unique_ptr<Database> reopen(bool damaged);
    void prepare(int32_t source);
    void log(int severity, const std::string &line) const {
        if (options_.log) {
            options_.log(severity, line);
        }
    }

    const StoreOptions options_;
    const std::unique_ptr<StateDirectory> state_;
    const std::filesystem::path file_;
    const ArtworkFolder artwork_;
    SessionNumbers sessions_;
    MusicSources directories_;        // set by open(), then by the watch
    std::unique_ptr<Database> first_; // from open() until the scan takes it
    ConnectionPool pool_;
    ListCache lists_;
    std::atomic<bool> said_broken_ = false;
    ScanThread scanning_;
    std::unique_ptr<RootWatch> roots_; // set by open()
};

// Calls `read`. An error is logged once, and damage is reported to the scan.
template <typename Read>
std::optional<Error> SqliteCatalogue::attempt(const Read &read) {
    const int rebuilds = scanning_.rebuilds();
    try {
        pool_.read(read);
        return std::nullopt;
    } catch (const Error &error) {
        if (error.is_damage_of_catalogue()) {
            scanning_.found_damage(rebuilds);
        }
        if (!said_broken_.exchange(true)) {
            log(LOG_SEVERITY_ERROR, log_text(error));
        }
        return error;
    }
}

// The result of a function of the catalogue: the result of `read`, or a result word for its error,
// since an answer has no room for more.
template <typename Read>
int SqliteCatalogue::guarded(const Read &read) {
    int result = 0;
    const std::optional<Error> error =
        attempt([&](Database &database) { return result = read(database); });
    return error ? result_word(*error) : result;
}

template <typename Read>
int SqliteCatalogue::at_node(int32_t source, std::string_view node, const Read &read) {
    const MusicPointer where = directory(source);
    if (!where) {
        return ENOENT;
    }
    return guarded([&](Database &database) {
        SourceBrowser browser(database, lists_, source, where->type);
        const std::optional<Place> place = browser.find(node);
        return place ? read(database, browser, *place) : ENOENT;
    });
}

} // namespace vantro::service::catalogue

#endif
