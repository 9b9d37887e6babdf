#include "service/catalogue/store.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include <sqlite3.h>

#include <vantro/catalogue.h>

#include "service/catalogue/database/schema.h"
#include "service/catalogue/sqlite_catalogue.h"
#include "service/catalogue/text/collation.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

namespace {

namespace fs = std::filesystem;

// Pages of the file that all connections together keep in memory.
constexpr int64_t pages_bytes_max = 32 * 1024 * 1024;

// Longest name of a source, in bytes. An answer of 65536 bytes holds 32 sources, each with its name
// twice.
constexpr size_t source_name_max = 960;

constexpr uint64_t source_capabilities =
    VANTRO_SOURCE_CAN_BROWSE | VANTRO_SOURCE_CAN_SEARCH | VANTRO_SOURCE_CAN_METADATA |
    VANTRO_SOURCE_CAN_EXTENDED_METADATA | VANTRO_SOURCE_CAN_TRKSESSION | VANTRO_SOURCE_HAS_ARTWORK |
    VANTRO_SOURCE_HAS_PLAYLISTS;

// The last component of a path; the whole path if another one has the same last component.
std::string name_of(const fs::path &path, const std::vector<fs::path> &all) {
    const auto last = [](const fs::path &each) {
        return each.filename().empty() ? each.native() : each.filename().native();
    };
    const bool shared = std::count_if(all.begin(), all.end(), [&](const fs::path &other) {
                            return last(other) == last(path);
                        }) > 1;
    return clean_text(shared ? path.native() : last(path), source_name_max);
}

// The canonical paths of the directories, each once.
std::vector<fs::path> known_paths(const std::vector<fs::path> &directories) {
    std::vector<fs::path> paths;
    for (const fs::path &each : directories) {
        std::error_code error;
        // A directory that does not exist now may appear later, under this path.
        fs::path path = fs::weakly_canonical(fs::absolute(each), error);
        if (error) {
            path = fs::absolute(each).lexically_normal();
        }
        if (!path.has_filename() && path.has_relative_path()) {
            path = path.parent_path();
        }
        if (std::find(paths.begin(), paths.end(), path) == paths.end()) {
            paths.push_back(path);
        }
    }
    return paths;
}

} // namespace

void SqliteCatalogue::open() {
    const std::vector<fs::path> paths = known_paths(options_.music);
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

void SqliteCatalogue::set_music(const std::vector<fs::path> &music,
                                const std::vector<fs::path> &roots) {
    RootWatch::Music wanted;
    for (const fs::path &path : known_paths(music)) {
        wanted.directories.push_back(path.native());
    }
    for (const fs::path &path : known_paths(roots)) {
        wanted.roots.push_back(path.native());
    }
    roots_->set_music(std::move(wanted));
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
    calls.remounted = [this](const MusicPointer &source) { scanning_.rescan(source->id, {""}); };
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

void SqliteCatalogue::prepare(int32_t source) {
    attempt([&](Database &database) {
        SourceBrowser(database, lists_, source).prepare();
        return 0;
    });
    if (options_.prepared) {
        options_.prepared(source);
    }
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
