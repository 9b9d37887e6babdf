#include "service/catalogue/database/writer.h"

#include <vantro/catalogue.h>

#include "service/catalogue/text/collation.h"
#include "service/catalogue/text/search_words.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

void Writer::begin() {
    if (!transaction_) {
        transaction_.emplace(database_);
    }
    ++pending_;
}

void Writer::changed(int32_t source, int songs) {
    changed_[source] += songs;
}

int32_t Writer::source_at(std::string_view path) {
    // The first look-up does not write: on a full disk a service must still find its known sources.
    int64_t id = database_.number(0, "SELECT id FROM source WHERE path = ?1", Blob{path});
    if (id == 0) {
        begin();
        database_.run("INSERT INTO source(path) VALUES(?1)", Blob{path});
        id = database_.last_id();
    }
    return static_cast<int32_t>(id);
}

void Writer::add_source(int32_t id, std::string_view path) {
    if (database_.number(0, "SELECT id FROM source WHERE id = ?1", id) == 0) {
        begin();
        database_.run("INSERT OR IGNORE INTO source(id, path) VALUES(?1, ?2)", id, Blob{path});
    }
}

// ------------------------------------------------------------------------------------- songs

std::optional<Writer::SongRow> Writer::find_song(const FileName &where, int64_t &key) {
    SongRow song;
    song.id = find_by_key(kind_song, path_below(where.folder, where.file), key, [&](int64_t each) {
        Rows row = database_.query(
            "SELECT song.id, folder, album, year, file, identity FROM song"
            " JOIN node ON node.id = folder WHERE song.source = ?1 AND song.key = ?2",
            where.source, each);
        if (!row.next()) {
            return Match{0, false};
        }
        song = {row.integer(0), row.integer(1), row.integer(2), row.integer(3)};
        return Match{song.id, row.text(4) == where.file && row.text(5) == where.folder};
    });
    return song.id != 0 ? std::optional(song) : std::nullopt;
}

int64_t Writer::artwork_at(const std::optional<Artwork> &artwork) {
    if (!artwork) {
        return 0;
    }
    const int64_t known =
        database_.number(0, "SELECT id FROM artwork WHERE file = ?1", artwork->file);
    if (known != 0) {
        return known;
    }
    database_.run("INSERT INTO artwork(file, width, height) VALUES(?1, ?2, ?3)", artwork->file,
                  artwork->width, artwork->height);
    return database_.last_id();
}

void Writer::put_song(const FoundSong &song) {
    begin();
    const int32_t source = song.where.source;
    SongRow row;
    row.folder = folder_at(source, song.where.folder);
    row.year = year_at(source, song.song.year);
    row.album = album_at(source, song.artist, song.album);
    std::vector<int64_t> genres;
    for (const FoundName &genre : song.genres) {
        genres.push_back(node_at(source, kind_genre, genre, 0));
    }
    const int64_t artwork = artwork_at(song.artwork);

    int64_t key = 0;
    if (const std::optional<SongRow> old = find_song(song.where, key)) {
        row.id = old->id;
        unlink(*old);
        database_.run(
            "UPDATE song SET album = ?2, year = ?3, disc = ?4, track = ?5, duration = ?6,"
            " artwork = ?7, modified = ?8, size = ?9, name = ?10, place = ?11, sort = ?12,"
            " stated = ?13, own_artist = ?14, start = ?15, stop = ?16, sheet = ?17 WHERE id = ?1",
            row.id, row.album, row.year, song.song.disc, song.song.track, song.song.duration_ms,
            artwork, song.song.modified_ns, song.song.size, song.title, song.place, Blob{song.sort},
            song.artist_stated, Blob{song.artist.identity}, song.song.start_us, song.song.stop_us,
            song.song.sheet);
    } else {
        database_.run(
            "INSERT INTO song(source, key, folder, album, year, disc, track, duration, artwork,"
            " modified, size, name, file, place, sort, stated, own_artist, start, stop, sheet)"
            " VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17,"
            " ?18, ?19, ?20)",
            source, key, row.folder, row.album, row.year, song.song.disc, song.song.track,
            song.song.duration_ms, artwork, song.song.modified_ns, song.song.size, song.title,
            Blob{song.where.file}, song.place, Blob{song.sort}, song.artist_stated,
            Blob{song.artist.identity}, song.song.start_us, song.song.stop_us, song.song.sheet);
        row.id = database_.last_id();
        changed(source, 1);
        database_.run("DELETE FROM left_out WHERE source = ?1 AND folder = ?2 AND file = ?3",
                      source, Blob{song.where.folder}, Blob{song.where.file});
    }
    database_.run("INSERT OR REPLACE INTO song_detail(song, tags) VALUES(?1, ?2)", row.id,
                  Blob{song.song.tags.packed()});
    const Tags &tags = song.song.tags;
    database_.run("INSERT INTO song_words(rowid, title, artist, album, genre, composer)"
                  " VALUES(?1, ?2, ?3, ?4, ?5, ?6)",
                  row.id, search_words(song.title), search_words(tags.get(VANTRO_KEY_ARTIST)),
                  search_words(tags.get(VANTRO_KEY_ALBUM)),
                  search_words(tags.get(VANTRO_KEY_GENRE)),
                  search_words(tags.get(VANTRO_KEY_COMPOSER)));
    link(row.id, row, genres);
    put_performers(source, row.id, song.performers, song.artist.identity);
    changed(source);
    database_.run("INSERT OR REPLACE INTO unsettled(folder, source) VALUES(?1, ?2)", row.folder,
                  source);
}

int64_t Writer::album_at(int32_t source, const FoundName &artist, FoundName album) {
    const int64_t parent =
        node_at(source, artist.identity.empty() ? kind_no_artist : kind_artist, artist, 0);
    const Kind kind = album.identity.empty() ? kind_no_album : kind_album;
    // Two artists may have albums with the same name.
    album.identity = artist.identity + '\0' + album.identity;
    return node_at(source, kind, album, parent, artist.text);
}

// Leaves out the album's artist, under which the song is listed already.
void Writer::put_performers(int32_t source, int64_t song, const std::vector<FoundName> &performers,
                            std::string_view artist) {
    for (const FoundName &performer : performers) {
        if (performer.identity != artist) {
            const int64_t node = node_at(source, kind_artist, performer, 0);
            database_.run("INSERT INTO song_artist(artist, song) VALUES(?1, ?2)", node, song);
            count(node, 1);
        }
    }
}

void Writer::remove_performers(int64_t song) {
    Rows artists = database_.query("SELECT artist FROM song_artist WHERE song = ?1", song);
    while (artists.next()) {
        count(artists.integer(0), -1);
    }
    database_.run("DELETE FROM song_artist WHERE song = ?1", song);
}

void Writer::link(int64_t song, const SongRow &row, const std::vector<int64_t> &genres) {
    count(row.folder, 1);
    count(row.album, 1);
    count(row.year, 1);
    count(database_.number(0, "SELECT parent FROM node WHERE id = ?1 AND kind = ?2", row.album,
                           kind_no_album),
          1);
    for (const int64_t genre : genres) {
        database_.run("INSERT INTO song_genre(genre, song) VALUES(?1, ?2)", genre, song);
        count(genre, 1);
    }
}

// Removes the song from its lists and from the search.
void Writer::unlink(const SongRow &row) {
    count(row.folder, -1);
    count(row.album, -1);
    count(row.year, -1);
    count(database_.number(0, "SELECT parent FROM node WHERE id = ?1 AND kind = ?2", row.album,
                           kind_no_album),
          -1);
    Rows genres = database_.query("SELECT genre FROM song_genre WHERE song = ?1", row.id);
    while (genres.next()) {
        count(genres.integer(0), -1);
    }
    remove_performers(row.id);
    database_.run("DELETE FROM song_genre WHERE song = ?1", row.id);
    database_.run("DELETE FROM song_words WHERE rowid = ?1", row.id);
}

void Writer::remove_song(int32_t source, const SongRow &row) {
    unlink(row);
    database_.run("DELETE FROM song_detail WHERE song = ?1", row.id);
    database_.run("DELETE FROM song WHERE id = ?1", row.id);
    changed(source, -1);
    database_.run("INSERT OR REPLACE INTO unsettled(folder, source) VALUES(?1, ?2)", row.folder,
                  source);
    ++pending_;
}

// --------------------------------------------------------------------------------- other files

void Writer::put_playlist(const FileName &where, const PlaylistFile &playlist,
                          const std::vector<std::string> &paths) {
    begin();
    FoundName name{title_of_file(where.file), path_below(where.folder, where.file), {}};
    name.sort = sort_key(name.text);
    const int64_t node = node_at(where.source, kind_playlist, name, 0);
    counts_.erase(node); // an empty playlist stays a playlist
    database_.run("INSERT OR REPLACE INTO playlist(node, source, modified, size, folder, file)"
                  " VALUES(?1, ?2, ?3, ?4, ?5, ?6)",
                  node, where.source, playlist.modified_ns, playlist.size, Blob{where.folder},
                  Blob{where.file});
    database_.run("DELETE FROM playlist_entry WHERE playlist = ?1", node);
    int64_t position = 0;
    for (const std::string &path : paths) {
        database_.run("INSERT INTO playlist_entry(playlist, position, key) VALUES(?1, ?2, ?3)",
                      node, position++, key_of(kind_song, path));
    }
    database_.run("DELETE FROM left_out WHERE source = ?1 AND folder = ?2 AND file = ?3",
                  where.source, Blob{where.folder}, Blob{where.file});
    changed(where.source);
}

void Writer::remove_playlist(int32_t source, int64_t node) {
    database_.run("DELETE FROM playlist_entry WHERE playlist = ?1", node);
    database_.run("DELETE FROM playlist WHERE node = ?1", node);
    database_.run("DELETE FROM node WHERE id = ?1", node);
    nodes_.clear();
    changed(source);
}

void Writer::put_image(const FileName &where, FileStamp stamp,
                       const std::optional<Artwork> &artwork) {
    begin();
    database_.run("INSERT OR REPLACE INTO folder_image(source, folder, artwork, modified, size,"
                  " file) VALUES(?1, ?2, ?3, ?4, ?5, ?6)",
                  where.source, Blob{where.folder}, artwork_at(artwork), stamp.modified_ns,
                  stamp.size, Blob{where.file});
    changed(where.source);
}

void Writer::remove_image(int32_t source, std::string_view folder) {
    begin();
    database_.run("DELETE FROM folder_image WHERE source = ?1 AND folder = ?2", source,
                  Blob{folder});
    changed(source);
}

bool Writer::leave_out(const FileName &where, FileStamp stamp, std::string_view why) {
    if (database_.number(0,
                         "SELECT 1 FROM left_out WHERE source = ?1 AND folder = ?2 AND file = ?3"
                         " AND modified = ?4 AND size = ?5 AND why = ?6",
                         where.source, Blob{where.folder}, Blob{where.file}, stamp.modified_ns,
                         stamp.size, why) == 1) {
        return false;
    }
    begin();
    // The file may have been a song or playlist until now.
    remove_file(where);
    database_.run("INSERT OR REPLACE INTO left_out(source, folder, file, modified, size, why)"
                  " VALUES(?1, ?2, ?3, ?4, ?5, ?6)",
                  where.source, Blob{where.folder}, Blob{where.file}, stamp.modified_ns, stamp.size,
                  why);
    return true;
}

void Writer::remove_file(const FileName &where) {
    begin();
    int64_t key = 0;
    if (const std::optional<SongRow> song = find_song(where, key)) {
        remove_song(where.source, *song);
    }
    const int64_t playlist = database_.number(
        0, "SELECT node FROM playlist WHERE source = ?1 AND folder = ?2 AND file = ?3",
        where.source, Blob{where.folder}, Blob{where.file});
    if (playlist != 0) {
        remove_playlist(where.source, playlist);
    }
    database_.run("DELETE FROM left_out WHERE source = ?1 AND folder = ?2 AND file = ?3",
                  where.source, Blob{where.folder}, Blob{where.file});
}

// ------------------------------------------------------------------------------------- the end

bool Writer::has_song(int32_t source, std::string_view path) {
    return database_.number(0, "SELECT 1 FROM song WHERE source = ?1 AND key = ?2", source,
                            key_of(kind_song, path)) == 1;
}

bool Writer::has_artwork(std::string_view file) {
    return database_.number(0, "SELECT 1 FROM artwork WHERE file = ?1", file) == 1;
}

std::vector<int32_t> Writer::commit() {
    std::vector<int32_t> sources;
    if (!transaction_) {
        return sources;
    }
    apply_counts();
    for (const auto &[source, songs] : changed_) {
        database_.run("UPDATE source SET generation = generation + 1, songs = songs + ?2"
                      " WHERE id = ?1",
                      source, songs);
        sources.push_back(source);
    }
    transaction_->commit();
    transaction_.reset();
    changed_.clear();
    pending_ = 0;
    return sources;
}

void Writer::undo() {
    transaction_.reset();
    changed_.clear();
    counts_.clear();
    nodes_.clear();
    pending_ = 0;
}

} // namespace vantro::service::catalogue
