#include "service/catalogue/writer.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include <vantro/catalogue.h>

#include "service/catalogue/text.h"

namespace vantro {

namespace {

// Enough for the artists and albums that a scan meets again and again.
constexpr std::size_t nodes_kept = 4096;

// A key is looked for under so many salts where two things share one. More never do.
constexpr int salts_max = 8;

// What sorts directly before and behind everything that lies below `folder`.
std::pair<std::string, std::string> below(std::string_view folder) {
    return {std::string(folder) + '/', std::string(folder) + '0'}; // '0' follows '/'
}

std::string last_piece(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

} // namespace

void Writer::begin() {
    if (!transaction_)
        transaction_.emplace(database_);
    ++pending_;
}

void Writer::changed(int32_t source, int songs) {
    changed_[source] += songs;
}

int32_t Writer::source_at(std::string_view path) {
    // Looked for first: a full disk must not keep a service from what it knows already.
    int64_t id = database_.number(0, "SELECT id FROM source WHERE path = ?1", Blob{path});
    if (id == 0) {
        begin();
        database_.run("INSERT INTO source(path) VALUES(?1)", Blob{path});
        id = database_.last_id();
    }
    return static_cast<int32_t>(id);
}

// ------------------------------------------------------------------------------------- nodes

int64_t Writer::find_node(int32_t source, char kind, std::string_view identity, int64_t &key) {
    return find_by_key(kind, identity, key, [&](int64_t each) {
        Rows row = database_.query(
            "SELECT id, identity FROM node WHERE source = ?1 AND kind = ?2 AND key = ?3", source,
            kind, each);
        if (!row.next())
            return Match{0, false};
        return Match{row.integer(0), row.text(1) == identity};
    });
}

// Looks for what has that identity; 0 where there is none, and then `key` is the one to give it.
// Two things of one digest get different keys: the second one in the catalogue takes a salted one,
// and keeps it also when the first one goes.
int64_t Writer::find_by_key(char kind, std::string_view identity, int64_t &key,
                            const std::function<Match(int64_t key)> &look) {
    const int64_t plain = key_of(kind, identity);
    key = plain;
    Match found = look(plain);
    if (found.same || (found.id == 0 && !shared(plain)))
        return found.id;
    bool has_key = found.id == 0;
    for (int salt = 1; salt <= salts_max || !has_key; ++salt) {
        const int64_t salted = key_of(kind, identity, salt);
        found = look(salted);
        if (found.same) {
            key = salted;
            return found.id;
        }
        if (found.id == 0 && !std::exchange(has_key, true))
            key = salted;
    }
    database_.run("INSERT OR IGNORE INTO shared_key(key) VALUES(?1)", plain);
    return 0;
}

bool Writer::shared(int64_t key) {
    return database_.number(0, "SELECT 1 FROM shared_key WHERE key = ?1", key) == 1;
}

int64_t Writer::node_at(int32_t source, char kind, const FoundName &name, int64_t parent,
                        std::string_view artist) {
    std::string known = fmt::format("{} {} ", source, kind) + name.identity;
    if (const auto found = nodes_.find(known); found != nodes_.end())
        return found->second;
    int64_t key = 0;
    int64_t id = find_node(source, kind, name.identity, key);
    if (id == 0) {
        database_.run("INSERT INTO node(source, kind, key, parent, name, identity, sort)"
                      " VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)",
                      source, kind, key, parent, name.text, Blob{name.identity}, Blob{name.sort});
        id = database_.last_id();
        if (parent != 0 && kind != kind_no_album)
            count(parent, 1);
        count(id, 0); // looked at again before others see it
        const std::string words = spaced(name.text);
        if (kind == kind_artist)
            database_.run("INSERT INTO node_words(rowid, artist) VALUES(?1, ?2)", id, words);
        else if (kind == kind_album)
            database_.run("INSERT INTO node_words(rowid, album, of_artist) VALUES(?1, ?2, ?3)", id,
                          words, spaced(artist));
        else if (kind == kind_genre)
            database_.run("INSERT INTO node_words(rowid, genre) VALUES(?1, ?2)", id, words);
    }
    if (nodes_.size() >= nodes_kept)
        nodes_.clear();
    nodes_.emplace(std::move(known), id);
    return id;
}

// The folder's node, with those above it.
int64_t Writer::folder_at(int32_t source, std::string_view folder) {
    const std::string known =
        fmt::format("{} {} ", source, char{kind_folder}) + std::string(folder);
    if (const auto found = nodes_.find(known); found != nodes_.end())
        return found->second;
    int64_t parent = 0;
    if (!folder.empty()) {
        const std::size_t slash = folder.rfind('/');
        parent = folder_at(source, slash == std::string_view::npos ? std::string_view()
                                                                   : folder.substr(0, slash));
    }
    FoundName name{clean_text(last_piece(folder), tag_text_max), std::string(folder), {}};
    name.sort = sort_key(name.text);
    return node_at(source, kind_folder, name, parent);
}

int64_t Writer::year_at(int32_t source, int32_t year) {
    if (year == 0)
        return 0;
    int64_t id =
        database_.number(0, "SELECT id FROM node WHERE source = ?1 AND kind = ?2 AND key = ?3",
                         source, char{kind_year}, year);
    if (id == 0) {
        const std::string text = std::to_string(year);
        database_.run("INSERT INTO node(source, kind, key, parent, name, identity, sort)"
                      " VALUES(?1, ?2, ?3, 0, ?4, ?5, ?6)",
                      source, char{kind_year}, year, text, Blob{text},
                      Blob{fmt::format("{:05}", year)});
        id = database_.last_id();
    }
    return id;
}

void Writer::count(int64_t node, int difference) {
    if (node != 0)
        counts_[node] += difference;
}

// Nodes that hold nothing any more go, and so may those that held them.
void Writer::apply_counts() {
    while (!counts_.empty()) {
        std::unordered_map<int64_t, int> now;
        now.swap(counts_);
        for (const auto &[node, difference] : now) {
            if (difference != 0)
                database_.run("UPDATE node SET count = count + ?2 WHERE id = ?1", node, difference);
            const int64_t left = database_.number(1, "SELECT count FROM node WHERE id = ?1", node);
            // What was counted in the meantime keeps it for the next round.
            if (left <= 0 && counts_.count(node) == 0)
                remove_node(node);
        }
    }
}

void Writer::remove_node(int64_t node) {
    char kind = 0;
    int64_t parent = 0;
    {
        Rows row = database_.query("SELECT kind, parent FROM node WHERE id = ?1", node);
        if (!row.next())
            return;
        kind = static_cast<char>(row.integer(0));
        parent = row.integer(1);
    }
    if (kind == kind_artist || kind == kind_album || kind == kind_genre)
        database_.run("DELETE FROM node_words WHERE rowid = ?1", node);
    database_.run("DELETE FROM node WHERE id = ?1", node);
    if (kind != kind_no_album)
        count(parent, -1);
    nodes_.clear();
}

// ------------------------------------------------------------------------------------- songs

std::optional<Writer::SongRow> Writer::find_song(const FileName &where, int64_t &key) {
    SongRow song;
    song.id = find_by_key(kind_song, path_below(where.folder, where.file), key, [&](int64_t each) {
        Rows row = database_.query(
            "SELECT song.id, folder, album, year, performer, file, identity FROM song"
            " JOIN node ON node.id = folder WHERE song.source = ?1 AND song.key = ?2",
            where.source, each);
        if (!row.next())
            return Match{0, false};
        song = {row.integer(0), row.integer(1), row.integer(2), row.integer(3), row.integer(4)};
        return Match{song.id, row.text(5) == where.file && row.text(6) == where.folder};
    });
    return song.id != 0 ? std::optional(song) : std::nullopt;
}

int64_t Writer::artwork_at(const std::optional<Artwork> &artwork) {
    if (!artwork)
        return 0;
    const int64_t known =
        database_.number(0, "SELECT id FROM artwork WHERE file = ?1", artwork->file);
    if (known != 0)
        return known;
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
    row.performer = performer_at(source, song.performer, song.artist.identity);
    std::vector<int64_t> genres;
    for (const FoundName &genre : song.genres)
        genres.push_back(node_at(source, kind_genre, genre, 0));
    const int64_t artwork = artwork_at(song.artwork);

    int64_t key = 0;
    if (const std::optional<SongRow> old = find_song(song.where, key)) {
        row.id = old->id;
        unlink(*old);
        database_.run(
            "UPDATE song SET album = ?2, year = ?3, disc = ?4, track = ?5, duration = ?6,"
            " artwork = ?7, modified = ?8, size = ?9, name = ?10, place = ?11, sort = ?12,"
            " performer = ?13, stated = ?14, own_artist = ?15 WHERE id = ?1",
            row.id, row.album, row.year, song.song.disc, song.song.track, song.song.duration_ms,
            artwork, song.song.modified_ns, song.song.size, song.title, song.place, Blob{song.sort},
            row.performer, song.artist_stated, Blob{song.artist.identity});
    } else {
        database_.run(
            "INSERT INTO song(source, key, folder, album, year, disc, track, duration, artwork,"
            " modified, size, name, file, place, sort, performer, stated, own_artist) VALUES(?1, "
            "?2,"
            " ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17, ?18)",
            source, key, row.folder, row.album, row.year, song.song.disc, song.song.track,
            song.song.duration_ms, artwork, song.song.modified_ns, song.song.size, song.title,
            Blob{song.where.file}, song.place, Blob{song.sort}, row.performer, song.artist_stated,
            Blob{song.artist.identity});
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
                  row.id, spaced(song.title), spaced(tags.get(VANTRO_KEY_ARTIST)),
                  spaced(tags.get(VANTRO_KEY_ALBUM)), spaced(tags.get(VANTRO_KEY_GENRE)),
                  spaced(tags.get(VANTRO_KEY_COMPOSER)));
    link(row.id, row, genres);
    changed(source);
    database_.run("INSERT OR IGNORE INTO unsettled(folder, source) VALUES(?1, ?2)", row.folder,
                  source);
}

int64_t Writer::album_at(int32_t source, const FoundName &artist, FoundName album) {
    const int64_t parent =
        node_at(source, artist.identity.empty() ? kind_no_artist : kind_artist, artist, 0);
    const char kind = album.identity.empty() ? kind_no_album : kind_album;
    // Two artists may have albums of one name.
    album.identity = artist.identity + '\0' + album.identity;
    return node_at(source, kind, album, parent, artist.text);
}

// 0 where it is the album's artist, who has the song already.
int64_t Writer::performer_at(int32_t source, const FoundName &performer, std::string_view artist) {
    if (performer.identity.empty() || performer.identity == artist)
        return 0;
    return node_at(source, kind_artist, performer, 0);
}

void Writer::link(int64_t song, const SongRow &row, const std::vector<int64_t> &genres) {
    count(row.folder, 1);
    count(row.album, 1);
    count(row.year, 1);
    count(row.performer, 1);
    count(database_.number(0, "SELECT parent FROM node WHERE id = ?1 AND kind = ?2", row.album,
                           char{kind_no_album}),
          1);
    for (const int64_t genre : genres) {
        database_.run("INSERT INTO song_genre(genre, song) VALUES(?1, ?2)", genre, song);
        count(genre, 1);
    }
}

// Takes the song out of everything that holds or finds it.
void Writer::unlink(const SongRow &row) {
    count(row.folder, -1);
    count(row.album, -1);
    count(row.year, -1);
    count(row.performer, -1);
    count(database_.number(0, "SELECT parent FROM node WHERE id = ?1 AND kind = ?2", row.album,
                           char{kind_no_album}),
          -1);
    Rows genres = database_.query("SELECT genre FROM song_genre WHERE song = ?1", row.id);
    while (genres.next())
        count(genres.integer(0), -1);
    database_.run("DELETE FROM song_genre WHERE song = ?1", row.id);
    database_.run("DELETE FROM song_words WHERE rowid = ?1", row.id);
}

void Writer::remove_song(int32_t source, const SongRow &row) {
    unlink(row);
    database_.run("DELETE FROM song_detail WHERE song = ?1", row.id);
    database_.run("DELETE FROM song WHERE id = ?1", row.id);
    changed(source, -1);
    database_.run("INSERT OR IGNORE INTO unsettled(folder, source) VALUES(?1, ?2)", row.folder,
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
    for (const std::string &path : paths)
        database_.run("INSERT INTO playlist_entry(playlist, position, key) VALUES(?1, ?2, ?3)",
                      node, position++, key_of(kind_song, path));
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
                         stamp.size, why) == 1)
        return false;
    begin();
    // A file that could be read before cannot be any more.
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
    if (const std::optional<SongRow> song = find_song(where, key))
        remove_song(where.source, *song);
    const int64_t playlist = database_.number(
        0, "SELECT node FROM playlist WHERE source = ?1 AND folder = ?2 AND file = ?3",
        where.source, Blob{where.folder}, Blob{where.file});
    if (playlist != 0)
        remove_playlist(where.source, playlist);
    database_.run("DELETE FROM left_out WHERE source = ?1 AND folder = ?2 AND file = ?3",
                  where.source, Blob{where.folder}, Blob{where.file});
}

// ------------------------------------------------------------------------------------- folders

KnownFolder Writer::known(int32_t source, std::string_view folder) {
    KnownFolder known;
    int64_t key = 0;
    const int64_t node = find_node(source, kind_folder, folder, key);
    const auto take = [&known](Rows &rows, bool left_out = false) {
        while (rows.next())
            known.files[std::string(rows.text(0))] = {{rows.integer(1), rows.integer(2)}, left_out};
    };
    {
        Rows rows =
            database_.query("SELECT file, modified, size FROM song WHERE folder = ?1", node);
        take(rows);
    }
    {
        Rows rows = database_.query("SELECT file, modified, size FROM playlist"
                                    " WHERE source = ?1 AND folder = ?2",
                                    source, Blob{folder});
        take(rows);
    }
    {
        Rows rows = database_.query("SELECT file, modified, size FROM left_out"
                                    " WHERE source = ?1 AND folder = ?2",
                                    source, Blob{folder});
        take(rows, true);
    }
    {
        Rows rows = database_.query("SELECT identity FROM node WHERE parent = ?1 AND kind = ?2",
                                    node, char{kind_folder});
        while (node != 0 && rows.next())
            known.folders.insert(last_piece(rows.text(0)));
    }
    // Folders without a song have no node; what is known of them hangs on their paths alone.
    const std::string first = folder.empty() ? "" : below(folder).first;
    const auto take_folder = [&](Rows &rows) {
        while (rows.next()) {
            const std::string_view rest = rows.text(0).substr(first.size());
            known.folders.emplace(rest.substr(0, rest.find('/')));
        }
    };
    const std::string last = folder.empty() ? std::string(256, '\xFF') : below(folder).second;
    {
        Rows rows = database_.query("SELECT DISTINCT folder FROM left_out"
                                    " WHERE source = ?1 AND folder > ?2 AND folder < ?3",
                                    source, Blob{first}, Blob{last});
        take_folder(rows);
    }
    {
        Rows rows = database_.query("SELECT DISTINCT folder FROM playlist"
                                    " WHERE source = ?1 AND folder > ?2 AND folder < ?3",
                                    source, Blob{first}, Blob{last});
        take_folder(rows);
    }
    Rows image = database_.query("SELECT file, modified, size FROM folder_image"
                                 " WHERE source = ?1 AND folder = ?2",
                                 source, Blob{folder});
    if (image.next()) {
        known.image = image.text(0);
        known.image_stamp = {image.integer(1), image.integer(2)};
    }
    return known;
}

void Writer::remove_songs_of(int32_t source, int64_t folder) {
    std::vector<SongRow> songs;
    Rows rows =
        database_.query("SELECT id, album, year, performer FROM song WHERE folder = ?1", folder);
    while (rows.next())
        songs.push_back(
            {rows.integer(0), folder, rows.integer(1), rows.integer(2), rows.integer(3)});
    for (const SongRow &song : songs)
        remove_song(source, song);
}

void Writer::remove_folder(int32_t source, std::string_view folder) {
    begin();
    std::vector<int64_t> folders;
    int64_t key = 0;
    if (const int64_t node = find_node(source, kind_folder, folder, key); node != 0)
        folders.push_back(node);
    while (!folders.empty()) {
        const int64_t node = folders.back();
        folders.pop_back();
        remove_songs_of(source, node);
        Rows inside = database_.query("SELECT id FROM node WHERE parent = ?1 AND kind = ?2", node,
                                      char{kind_folder});
        while (inside.next())
            folders.push_back(inside.integer(0));
    }
    const auto [first, last] = below(folder);
    std::vector<int64_t> playlists;
    {
        Rows rows = database_.query("SELECT node FROM playlist WHERE source = ?1"
                                    " AND (folder = ?2 OR (folder > ?3 AND folder < ?4))",
                                    source, Blob{folder}, Blob{first}, Blob{last});
        while (rows.next())
            playlists.push_back(rows.integer(0));
    }
    for (const int64_t playlist : playlists)
        remove_playlist(source, playlist);
    database_.run("DELETE FROM left_out WHERE source = ?1"
                  " AND (folder = ?2 OR (folder > ?3 AND folder < ?4))",
                  source, Blob{folder}, Blob{first}, Blob{last});
    database_.run("DELETE FROM folder_image WHERE source = ?1"
                  " AND (folder = ?2 OR (folder > ?3 AND folder < ?4))",
                  source, Blob{folder}, Blob{first}, Blob{last});
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
    if (!transaction_)
        return sources;
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

} // namespace vantro
