#include "service/catalogue/store.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <sqlite3.h>

#include <vantro/catalogue.h>
#include <vantro/platform/log.h>

#include "service/catalogue/database/connection_pool.h"
#include "service/catalogue/database/schema.h"
#include "service/catalogue/files/artwork_folder.h"
#include "service/catalogue/files/music_root.h"
#include "service/catalogue/files/song_file.h"
#include "service/catalogue/query/list_cache.h"
#include "service/catalogue/query/metadata.h"
#include "service/catalogue/query/source_browser.h"
#include "service/catalogue/scan/root_watch.h"
#include "service/catalogue/scan/scan_thread.h"
#include "service/catalogue/state_directory.h"
#include "service/catalogue/text/collation.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

namespace {

namespace fs = std::filesystem;

// Pages of the file that all connections together keep in memory.
constexpr int64_t pages_bytes_max = 32 * 1024 * 1024;

// Longest name of a source, in bytes. An answer of 65536 bytes holds 32 sources with each name
// twice.
constexpr size_t source_name_max = 960;

constexpr uint64_t source_capabilities =
    VANTRO_SOURCE_CAN_BROWSE | VANTRO_SOURCE_CAN_SEARCH | VANTRO_SOURCE_CAN_METADATA |
    VANTRO_SOURCE_CAN_EXTENDED_METADATA | VANTRO_SOURCE_CAN_TRKSESSION | VANTRO_SOURCE_HAS_ARTWORK |
    VANTRO_SOURCE_HAS_PLAYLISTS;

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
    SongPart part(SongId id) override;
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
    const fs::path file_;
    const ArtworkFolder artwork_;
    SessionNumbers sessions_;
    MusicSources directories_;        // the music directories are set by open()
    std::unique_ptr<Database> first_; // from open() until the scan takes it
    ConnectionPool pool_;
    ListCache lists_;
    std::atomic<bool> said_broken_ = false;
    ScanThread scanning_;
    std::unique_ptr<RootWatch> roots_; // set by open()
};

// The last part of a path; the whole path where another one has the same last part.
std::string name_of(const fs::path &path, const std::vector<fs::path> &all) {
    const auto last = [](const fs::path &each) {
        return each.filename().empty() ? each.native() : each.filename().native();
    };
    const bool shared = std::count_if(all.begin(), all.end(), [&](const fs::path &other) {
                            return last(other) == last(path);
                        }) > 1;
    return clean_text(shared ? path.native() : last(path), source_name_max);
}

void SqliteCatalogue::open() {
    std::vector<fs::path> paths;
    for (const fs::path &music : options_.music) {
        std::error_code error;
        // A directory that does not exist now may appear later, under this path.
        fs::path path = fs::weakly_canonical(fs::absolute(music), error);
        if (error) {
            path = fs::absolute(music).lexically_normal();
        }
        if (!path.has_filename() && path.has_relative_path()) {
            path = path.parent_path();
        }
        if (std::find(paths.begin(), paths.end(), path) == paths.end()) {
            paths.push_back(path);
        }
    }
    try {
        sqlite3_soft_heap_limit64(pages_bytes_max);
        first_ = open_catalogue_file(
            file_, [this](const std::string &line) { log(LOG_SEVERITY_WARNING, line); });
        Writer writer(*first_);
        for (const fs::path &path : paths) {
            auto directory = std::make_shared<MusicDirectory>();
            directory->id = writer.source_at(path.native());
            directory->path = path.native();
            directory->status = VANTRO_SOURCE_SCANNING; // Its scan comes next.
            directory->key = path.native();
            directory->name = name_of(path, paths);
            directory->type = VANTRO_SOURCE_DIRECTORY;
            directories_.add(std::move(directory));
        }
        writer.commit();
        Rows known = first_->query("SELECT id, path FROM source");
        while (known.next()) {
            directories_.know(std::string(known.text(1)), known.small(0));
        }
    } catch (Error &error) {
        if (error.origin() == Error::Origin::catalogue) {
            error.set_file(file_.native());
        }
        throw;
    }
    watch_roots();
}

void SqliteCatalogue::watch_roots() {
    std::vector<std::string> roots;
    for (const fs::path &root : options_.roots) {
        roots.push_back(fs::canonical(root).native());
    }
    RootWatch::Calls calls;
    calls.changed = [this](int32_t source) {
        if (options_.changed && scanning_.started()) {
            options_.changed(source);
        }
    };
    calls.sources_changed = [this] { scanning_.look_at_sources(); };
    calls.remounted = [this](const MusicPointer &source) { scanning_.remounted(source); };
    calls.log = [this](int severity, const std::string &line) { log(severity, line); };
    roots_ = std::make_unique<RootWatch>(directories_, std::move(roots), std::move(calls));
    roots_->look();
}

// The sources keep their numbers, which clients hold.
std::unique_ptr<Database> SqliteCatalogue::reopen(bool damaged) {
    if (!damaged && first_) {
        return std::move(first_);
    }
    first_.reset();
    const auto say = [this](const std::string &line) { log(LOG_SEVERITY_WARNING, line); };
    std::optional<Error> damage;
    if (damaged) {
        damage = find_damage(file_);
        if (!damage) {
            say("the catalogue seemed damaged; it was checked and is intact");
        }
    }
    std::unique_ptr<Database> database;
    pool_.replace([&] {
        if (damage) {
            move_aside(file_, *damage, say);
        }
        database = open_catalogue_file(file_, say);
        Transaction whole(*database);
        for (const auto &[key, id] : directories_.numbers()) {
            database->run("INSERT OR IGNORE INTO source(id, path) VALUES(?1, ?2)", id, Blob{key});
        }
        whole.commit();
        lists_.clear();
        said_broken_ = false;
    });
    return database;
}

// Without id if the song is gone, or this service does not have its source.
Node SqliteCatalogue::song_node(SourceBrowser &browser, SongId song) const {
    Node node = song > 0 ? browser.node(Entry::song(song)) : Node();
    const MusicPointer source = directory(node.source);
    if (!source) {
        return {};
    }
    node.source_type = source->type;
    return node;
}

// Reads. An error is logged once, and damage reported to the scan.
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

// What the catalogue's functions return: what `read` does, or what clients are told of an error.
// They are as narrow as that because an answer has room for no more.
template <typename Read>
int SqliteCatalogue::guarded(const Read &read) {
    int result = 0;
    const std::optional<Error> error =
        attempt([&](Database &database) { return result = read(database); });
    return error ? result_word(*error) : result;
}

void SqliteCatalogue::prepare(int32_t source) {
    attempt([&](Database &database) {
        SourceBrowser(database, lists_, source).prepare();
        return 0;
    });
}

template <typename Read>
int SqliteCatalogue::at_node(int32_t source, std::string_view node, const Read &read) {
    if (!directory(source)) {
        return ENOENT;
    }
    return guarded([&](Database &database) {
        SourceBrowser browser(database, lists_, source);
        const std::optional<Place> place = browser.find(node);
        return place ? read(database, browser, *place) : ENOENT;
    });
}

std::vector<Source> SqliteCatalogue::sources() {
    std::vector<Source> all;
    for (const MusicPointer &each : directories_.all()) {
        Source source;
        source.id = each->id;
        source.uid = uid_of(each->key);
        source.name = each->name;
        source.view_name = each->name;
        source.type = each->type;
        source.status = each->status;
        source.capabilities = source_capabilities;
        all.push_back(std::move(source));
    }
    return all;
}

int SqliteCatalogue::browse(int32_t source, std::string_view node, Range range, NodeSink &nodes) {
    return at_node(source, node, [&](Database &, SourceBrowser &browser, Place place) {
        browser.browse(place, range, nodes);
        return 0;
    });
}

int SqliteCatalogue::search(int32_t source, std::string_view filter, std::string_view term,
                            Range range, NodeSink &nodes) {
    return at_node(source, VANTRO_NODE_ROOT, [&](Database &, SourceBrowser &browser, Place) {
        const std::optional<SourceBrowser::ListPointer> found = browser.search(filter, term);
        if (!found) {
            return EINVAL;
        }
        browser.nodes(**found, range, nodes);
        return 0;
    });
}

int SqliteCatalogue::metadata(int32_t source, std::string_view node,
                              std::optional<SongMetadata> &metadata) {
    return at_node(source, node, [&](Database &database, SourceBrowser &browser, Place place) {
        SongMetadata found;
        if (place.kind == kind_song && place.id != 0) {
            read_metadata(database, artwork_, place.id, found);
        } else {
            found = catalogue::describe(database, artwork_, browser, place);
        }
        metadata = std::move(found);
        return 0;
    });
}

int SqliteCatalogue::describe(const std::vector<Node> &nodes, std::vector<SongMetadata> &metadata) {
    metadata.resize(nodes.size());
    return guarded([&](Database &database) {
        for (size_t i = 0; i < nodes.size(); ++i) {
            const Node &node = nodes[i];
            if (node.id.empty()) {
                continue;
            }
            if (node.song != 0) {
                read_metadata(database, artwork_, node.song, metadata[i]);
                continue;
            }
            SourceBrowser browser(database, lists_, node.source);
            if (const std::optional<Place> place = browser.find(node.id)) {
                metadata[i] = catalogue::describe(database, artwork_, browser, *place);
            }
        }
        return 0;
    });
}

int SqliteCatalogue::extended_metadata(int32_t source, std::string_view node,
                                       const std::vector<std::string_view> &keys,
                                       std::vector<std::string> &values) {
    return at_node(source, node, [&](Database &database, SourceBrowser &browser, Place place) {
        if (place.kind == kind_song && place.id != 0) {
            const MusicPointer where = directory(source);
            values = read_extended(database, artwork_, where ? where->path : "", place.id, keys);
        } else {
            values = extended_of(catalogue::describe(database, artwork_, browser, place), keys);
        }
        return 0;
    });
}

int SqliteCatalogue::songs(int32_t source, std::string_view node, std::vector<QueuedSong> &songs) {
    return at_node(source, node, [&](Database &, SourceBrowser &browser, Place place) {
        browser.queue(*browser.songs(place), songs);
        return 0;
    });
}

int SqliteCatalogue::all_songs(std::vector<QueuedSong> &songs) {
    return guarded([&](Database &database) {
        for (const auto &each : directories_.all()) {
            SourceBrowser browser(database, lists_, each->id);
            browser.queue(*browser.songs({}), songs);
        }
        return 0;
    });
}

int64_t SqliteCatalogue::song_count() {
    int64_t count = 0;
    attempt([&](Database &database) {
        for (const auto &each : directories_.all()) {
            count += SourceBrowser(database, lists_, each->id).song_count();
        }
        return 0;
    });
    return count;
}

int SqliteCatalogue::song_nodes(const SongId *ids, size_t count, NodeSink &nodes) {
    return guarded([&](Database &database) {
        SourceBrowser browser(database, lists_, 0);
        nodes.expect(count);
        for (size_t i = 0; i < count; ++i) {
            Node node = song_node(browser, ids[i]);
            node.type = VANTRO_NODE_SONG;
            if (!nodes.take(row_of(node))) {
                break;
            }
        }
        return 0;
    });
}

int SqliteCatalogue::song(SongId id, Node &node, SongMetadata &metadata) {
    return guarded([&](Database &database) {
        SourceBrowser browser(database, lists_, 0);
        node = song_node(browser, id);
        return !node.id.empty() && read_metadata(database, artwork_, id, metadata) ? 0 : ENOENT;
    });
}

int SqliteCatalogue::song_files(const std::vector<SongId> &ids, std::vector<LocatedSong> &files) {
    return guarded([&](Database &database) {
        files.clear();
        files.reserve(ids.size());
        for (const SongId id : ids) {
            files.push_back(file_of(database, id));
        }
        return 0;
    });
}

int SqliteCatalogue::find_songs(const std::vector<SongName> &names,
                                std::vector<QueuedSong> &songs) {
    return guarded([&](Database &database) {
        SongFinder finder(database);
        for (const MusicPointer &each : directories_.all()) {
            finder.add({each->id, uid_of(each->key), each->path});
        }
        songs.clear();
        songs.reserve(names.size());
        for (const SongName &name : names) {
            songs.push_back(finder.find(name));
        }
        return 0;
    });
}

// Where a song's file is: its path below the source, which is null where the song is gone.
std::optional<Error> SqliteCatalogue::locate(SongId id, MusicPointer &source, std::string &path) {
    return attempt([&](Database &database) {
        SourceBrowser browser(database, lists_, 0);
        path = path_of(database, id);
        source = path.empty() ? nullptr : directory(song_node(browser, id).source);
        return 0;
    });
}

// Want of memory or descriptors says nothing about the file: the track plays on.
int32_t SqliteCatalogue::check(SongId id) {
    try {
        std::string path;
        MusicPointer source;
        if (const std::optional<Error> error = locate(id, source, path)) {
            return error->is_want() ? 0 : VANTRO_ERROR_UNREADABLE;
        }
        // With nothing held: the disk may be slow.
        return source ? check_song(source->path, path) : VANTRO_ERROR_GONE;
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

int SqliteCatalogue::open(SongId id) {
    try {
        std::string path;
        MusicPointer source;
        if (const std::optional<Error> error = locate(id, source, path)) {
            errno = error->is_damage() ? EIO : error->code();
            return -1;
        }
        if (!source) {
            errno = ENOENT;
            return -1;
        }
        return MusicRoot(source->path).open_file(path);
    } catch (const Error &error) {
        errno = error.code();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
    return -1;
}

SongPart SqliteCatalogue::part(SongId id) {
    SongPart part;
    attempt([&](Database &database) {
        part = part_of(database, id);
        return 0;
    });
    return part;
}

} // namespace

Result<std::unique_ptr<Store>> open_store(StoreOptions options) {
    try {
        set_up_collation();
        auto state = std::make_unique<StateDirectory>();
        if (const std::optional<Error> error =
                state->take(options.state, directory_mode(options.artwork_readers))) {
            return *error;
        }
        auto store = std::make_unique<SqliteCatalogue>(std::move(options), std::move(state));
        store->open();
        return std::unique_ptr<Store>(std::move(store));
    } catch (const std::exception &thrown) {
        return error_of(thrown);
    }
}

} // namespace vantro::service::catalogue
