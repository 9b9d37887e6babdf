#include "service/catalogue/database/schema.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>
#include <sqlite3.h>

namespace vantro::service::catalogue {

namespace {

// Raise it with every change of the tables or of their content.
constexpr int version = 5;

// Subtracted from the time in song numbers, to keep them short.
constexpr int64_t past_us = 1'700'000'000'000'000;

constexpr int writer_cache_kib = 16 * 1024;

// `node` holds everything but songs. Its key is a digest of its `identity`: the path below the
// source, or the folded names. `parent` is the folder above a folder, or the artist of an album. Of
// a song, `place` is its disc and track in one number, `stated` is whether its file states an album
// artist, and `own_artist` is the identity of that artist, or else of the first performer. A track
// of a cue sheet is a song whose `file` is name_of_track(): `start` and `stop` are its limits in
// the file, in microseconds, and `sheet` identifies the sheet.
//
// Numbers of songs start at the time at which the file was made, in microseconds. So the numbers of
// an earlier file, which a track session may still hold, do not occur in this one: no scan adds
// more than one song a microsecond.
constexpr const char *tables = R"(
CREATE TABLE source(
    id INTEGER PRIMARY KEY AUTOINCREMENT, path BLOB NOT NULL UNIQUE,
    generation INTEGER NOT NULL DEFAULT 1, songs INTEGER NOT NULL DEFAULT 0);

CREATE TABLE node(
    id INTEGER PRIMARY KEY, source INTEGER NOT NULL, kind INTEGER NOT NULL, key INTEGER NOT NULL,
    parent INTEGER NOT NULL, count INTEGER NOT NULL DEFAULT 0, name TEXT NOT NULL,
    identity BLOB NOT NULL, sort BLOB NOT NULL);
CREATE UNIQUE INDEX node_by_key ON node(source, kind, key);
CREATE INDEX node_by_name ON node(source, kind, sort, key);
CREATE INDEX node_by_parent ON node(parent, kind, sort, key);

-- Keys that were wanted for two things.
CREATE TABLE shared_key(key INTEGER PRIMARY KEY);

CREATE TABLE song(
    id INTEGER PRIMARY KEY AUTOINCREMENT, source INTEGER NOT NULL, key INTEGER NOT NULL,
    folder INTEGER NOT NULL, album INTEGER NOT NULL, year INTEGER NOT NULL,
    disc INTEGER NOT NULL, track INTEGER NOT NULL, duration INTEGER NOT NULL,
    stated INTEGER NOT NULL, own_artist BLOB NOT NULL,
    start INTEGER NOT NULL, stop INTEGER NOT NULL, sheet INTEGER NOT NULL,
    artwork INTEGER NOT NULL, modified INTEGER NOT NULL, size INTEGER NOT NULL,
    place INTEGER NOT NULL, name TEXT NOT NULL, file BLOB NOT NULL, sort BLOB NOT NULL);
CREATE UNIQUE INDEX song_by_key ON song(source, key);
CREATE INDEX song_by_name ON song(source, sort, key, duration, name);
CREATE INDEX song_by_folder ON song(folder, place, sort, key);
CREATE INDEX song_by_album ON song(album, place, sort, key);
CREATE INDEX song_by_year ON song(year) WHERE year != 0;
CREATE TABLE song_detail(song INTEGER PRIMARY KEY, tags BLOB NOT NULL);
CREATE TABLE song_genre(
    genre INTEGER, song INTEGER, PRIMARY KEY(genre, song)) WITHOUT ROWID;
CREATE INDEX genre_of_song ON song_genre(song);
-- Artists that perform a song, but for the one that the song's album is listed under.
CREATE TABLE song_artist(
    artist INTEGER, song INTEGER, PRIMARY KEY(artist, song)) WITHOUT ROWID;
CREATE INDEX artist_of_song ON song_artist(song);

CREATE TABLE playlist(
    node INTEGER PRIMARY KEY, source INTEGER NOT NULL, modified INTEGER NOT NULL,
    size INTEGER NOT NULL, folder BLOB NOT NULL, file BLOB NOT NULL);
CREATE UNIQUE INDEX playlist_by_folder ON playlist(source, folder, file);
CREATE TABLE playlist_entry(
    playlist INTEGER, position INTEGER, key INTEGER NOT NULL, PRIMARY KEY(playlist, position))
    WITHOUT ROWID;

CREATE TABLE artwork(
    id INTEGER PRIMARY KEY AUTOINCREMENT, file TEXT NOT NULL UNIQUE,
    width INTEGER NOT NULL, height INTEGER NOT NULL);
CREATE TABLE folder_image(
    source INTEGER, folder BLOB, artwork INTEGER NOT NULL, modified INTEGER NOT NULL,
    size INTEGER NOT NULL, file BLOB NOT NULL, PRIMARY KEY(source, folder)) WITHOUT ROWID;
CREATE INDEX song_with_artwork ON song(artwork) WHERE artwork != 0;

CREATE TABLE left_out(
    source INTEGER, folder BLOB, file BLOB, modified INTEGER NOT NULL, size INTEGER NOT NULL,
    why TEXT NOT NULL, PRIMARY KEY(source, folder, file)) WITHOUT ROWID;

-- Folders whose songs have not been looked at together since one of them changed.
CREATE TABLE unsettled(folder INTEGER PRIMARY KEY, source INTEGER NOT NULL);

-- What search_words() made of the texts.
CREATE VIRTUAL TABLE song_words USING fts5(
    title, artist, album, genre, composer,
    prefix = '1 2', columnsize = 0, tokenize = 'ascii');
CREATE VIRTUAL TABLE node_words USING fts5(
    artist, album, genre, of_artist,
    prefix = '1 2', columnsize = 0, tokenize = 'ascii');
)";

bool good(Database &database) {
    const int64_t found = database.number(0, "PRAGMA user_version");
    if (found == 0 && database.number(0, "SELECT COUNT(*) FROM sqlite_schema") == 0) {
        Transaction whole(database);
        database.script(tables);
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        database.run("INSERT INTO sqlite_sequence(name, seq) VALUES('song', ?1)",
                     std::chrono::duration_cast<std::chrono::microseconds>(now).count() - past_us);
        database.script(fmt::format("PRAGMA user_version = {}", version).c_str());
        whole.commit();
        return true;
    }
    if (found != version) {
        return false;
    }
    // Checks only that the tables exist. Damage to their content shows when it is read.
    database.run("SELECT generation, songs FROM source");
    database.run("SELECT id FROM node JOIN playlist ON node = id LIMIT 1");
    database.run("SELECT rowid FROM song_words LIMIT 1");
    database.run("SELECT rowid FROM node_words LIMIT 1");
    database.run("SELECT song.id FROM song, song_detail, artwork, folder_image, left_out,"
                 " unsettled LIMIT 1");
    return true;
}

// The check reports pages that it could not read as if they were damaged.
bool tells_failed_read(std::string_view finding) {
    constexpr std::string_view label = "error code=";
    const size_t at = finding.find(label);
    if (at == std::string_view::npos) {
        return false;
    }
    int code = 0;
    const std::string_view number = finding.substr(at + label.size());
    std::from_chars(number.data(), number.data() + number.size(), code);
    return (code & 0xFF) == SQLITE_IOERR;
}

void check_whole(Database &database) {
    std::string found;
    {
        Rows rows = database.query("PRAGMA integrity_check");
        while (rows.next()) {
            if (tells_failed_read(rows.text(0))) {
                throw Error(Error::Origin::catalogue, EIO, "cannot be checked: a read fails");
            }
            if (found.empty()) {
                found = rows.text(0);
            }
        }
    }
    if (found != "ok") {
        throw Error::damage(Error::Origin::catalogue, fmt::format("is damaged: {}", found));
    }
    // These change nothing: they compare the words with their index.
    database.run("INSERT INTO song_words(song_words) VALUES('integrity-check')");
    database.run("INSERT INTO node_words(node_words) VALUES('integrity-check')");
}

// SQLite gives the files beside the catalogue its permission bits. A file that exists is not opened
// here, since closing it would drop the locks that this process has on it.
void make_private(const std::filesystem::path &file) {
    const int made = open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (made >= 0) {
        close(made);
        return;
    }
    for (const char *each : {"", "-wal", "-shm"}) {
        chmod((file.native() + each).c_str(), 0600);
    }
}

std::unique_ptr<Database> open_one(const std::filesystem::path &file) {
    make_private(file);
    auto database = std::make_unique<Database>(file, Database::Access::write, writer_cache_kib);
    database->script("PRAGMA journal_mode = WAL");
    return good(*database) ? std::move(database) : nullptr;
}

Error other_version() {
    return Error::damage(Error::Origin::catalogue, "has another version");
}

} // namespace

std::optional<Error> find_damage(const std::filesystem::path &file) {
    try {
        const std::unique_ptr<Database> database = open_one(file);
        if (!database) {
            return other_version();
        }
        check_whole(*database);
    } catch (const Error &error) {
        if (!error.is_damage()) {
            throw;
        }
        return error;
    }
    return std::nullopt;
}

void move_aside(const std::filesystem::path &file, const Error &damage,
                const std::function<void(const std::string &)> &say) {
    std::filesystem::path aside;
    std::error_code error;
    for (int number = 1;; ++number) {
        aside = fmt::format("{}.bad-{}", file.native(), number);
        if (!std::filesystem::exists(std::filesystem::symlink_status(aside, error))) {
            break;
        }
    }
    std::filesystem::rename(file, aside, error);
    if (error) {
        throw Error::failed(Error::Origin::catalogue, error.value(),
                            fmt::format("{}, and cannot be moved aside", damage.text()));
    }
    // A write-ahead log belongs to its file, so it must not be applied to a new one.
    for (const char *beside : {"-wal", "-shm"}) {
        std::filesystem::rename(file.native() + beside, aside.native() + beside, error);
    }
    say(fmt::format("{}; it was moved to {} and is made again", log_text(damage), aside.native()));
}

std::unique_ptr<Database> open_catalogue_file(const std::filesystem::path &file,
                                              const std::function<void(const std::string &)> &say) {
    std::optional<Error> damage = other_version();
    try {
        if (auto database = open_one(file)) {
            return database;
        }
    } catch (const Error &error) {
        if (!error.is_damage()) {
            throw;
        }
        damage = find_damage(file);
    }
    if (damage) {
        move_aside(file, *damage, say);
    }
    auto database = open_one(file);
    if (!database) {
        throw Error::damage(Error::Origin::catalogue, "cannot be made");
    }
    return database;
}

} // namespace vantro::service::catalogue
