// The part of Writer that needs all songs of a source: it decides which songs make one album.
#include "service/catalogue/database/writer.h"

#include <algorithm>

#include <vantro/catalogue.h>

namespace vantro::service::catalogue {

namespace {

// A song in a folder that names an album.
struct AlbumSong {
    int64_t id;
    int64_t album;
    bool stated;            // whether its file states an album artist
    std::string own_artist; // its identity, as in the table
    std::string artist;     // of the album that it is in now
    std::string name;       // of the album
};

std::vector<AlbumSong> album_songs(Database &database, int64_t folder) {
    std::vector<AlbumSong> songs;
    Rows rows = database.query("SELECT song.id, album, stated, own_artist, identity FROM song"
                               " JOIN node ON node.id = album WHERE folder = ?1 AND kind = ?2",
                               folder, kind_album);
    while (rows.next()) {
        const std::string_view identity = rows.text(4);
        const size_t end = identity.find('\0');
        songs.push_back({rows.integer(0), rows.integer(1), rows.integer(2) != 0,
                         std::string(rows.text(3)), std::string(identity.substr(0, end)),
                         std::string(identity.substr(end + 1))});
    }
    return songs;
}

FoundName artist_in(const Tags &tags, std::string_view identity) {
    FoundName several = named(several_artists);
    if (identity == several.identity) {
        return several;
    }
    if (FoundName stated = stated_artist_in(tags); stated.identity == identity) {
        return stated;
    }
    for (FoundName &performer : performers_in(tags)) {
        if (performer.identity == identity) {
            return std::move(performer);
        }
    }
    return {};
}

Tags tags_of(Database &database, int64_t song) {
    Rows row = database.query("SELECT tags FROM song_detail WHERE song = ?1", song);
    return row.next() ? Tags(std::string(row.text(0))) : Tags();
}

// If all songs of a folder name the same album, they form one album, whatever their artists are.
// Its artist is the one that more than half of those songs name that state an album artist; if no
// song states one, the one that performs more than half of the songs; else "Various Artists".
// Nothing if the folder holds several albums: then each song is listed under the artist that it
// names.
std::optional<FoundName> common_artist(Database &database, const std::vector<AlbumSong> &songs) {
    const auto of_same_name = [&](const AlbumSong &song) { return song.name == songs[0].name; };
    if (!std::all_of(songs.begin(), songs.end(), of_same_name)) {
        return std::nullopt;
    }
    const bool any_stated =
        std::any_of(songs.begin(), songs.end(), [](const AlbumSong &song) { return song.stated; });
    struct Named {
        size_t times = 0;
        int64_t by = 0; // one of the songs
    };
    std::map<std::string_view, Named> artists;
    size_t counted = 0;
    for (const AlbumSong &song : songs) {
        if (song.stated != any_stated || song.own_artist.empty()) {
            continue;
        }
        ++counted;
        Named &artist = artists[song.own_artist];
        ++artist.times;
        artist.by = song.id;
    }
    if (counted == 0) {
        return FoundName();
    }
    for (const auto &[identity, artist] : artists) {
        if (2 * artist.times > counted) {
            return artist_in(tags_of(database, artist.by), identity);
        }
    }
    return named(several_artists);
}

} // namespace

bool Writer::unsettled(int32_t source) {
    return database_.number(0, "SELECT 1 FROM unsettled WHERE source = ?1 LIMIT 1", source) == 1;
}

void Writer::settle_folder(int32_t source, int64_t folder) {
    const std::vector<AlbumSong> songs = album_songs(database_, folder);
    const std::optional<FoundName> common = common_artist(database_, songs);
    for (const AlbumSong &song : songs) {
        if (song.artist == (common ? common->identity : song.own_artist)) {
            continue;
        }
        const Tags tags = tags_of(database_, song.id);
        const FoundName artist = common ? *common : artist_in(tags, song.own_artist);
        FoundName album{{}, song.name, {}};
        {
            Rows row = database_.query("SELECT name, sort FROM node WHERE id = ?1", song.album);
            if (row.next()) {
                album.text = row.text(0);
                album.sort = row.text(1);
            }
        }
        const int64_t to = album_at(source, artist, album);
        count(song.album, -1);
        count(to, 1);
        database_.run("UPDATE song SET album = ?2 WHERE id = ?1", song.id, to);
        remove_performers(song.id);
        put_performers(source, song.id, performers_in(tags), artist.identity);
    }
}

void Writer::settle(int32_t source) {
    begin();
    std::vector<int64_t> folders;
    {
        Rows rows = database_.query("SELECT folder FROM unsettled WHERE source = ?1", source);
        while (rows.next()) {
            folders.push_back(rows.integer(0));
        }
    }
    for (const int64_t folder : folders) {
        settle_folder(source, folder);
    }
    database_.run("DELETE FROM unsettled WHERE source = ?1", source);
    std::map<int64_t, int64_t> playlists;
    {
        Rows rows = database_.query("SELECT node FROM playlist WHERE source = ?1", source);
        while (rows.next()) {
            playlists[rows.integer(0)] = 0;
        }
    }
    for (auto &[node, songs] : playlists) {
        songs = database_.number(0,
                                 "SELECT COUNT(*) FROM playlist_entry AS entry JOIN song"
                                 " ON song.source = ?1 AND song.key = entry.key"
                                 " WHERE entry.playlist = ?2",
                                 source, node);
        database_.run("UPDATE node SET count = ?2 WHERE id = ?1 AND count != ?2", node, songs);
    }
    database_.run("DELETE FROM artwork WHERE id NOT IN (SELECT artwork FROM folder_image)"
                  " AND NOT EXISTS (SELECT 1 FROM song"
                  " WHERE song.artwork = artwork.id AND song.artwork != 0)");
    changed(source);
}

} // namespace vantro::service::catalogue
