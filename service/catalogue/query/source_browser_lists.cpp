// The part of SourceBrowser that makes the lists of nodes and songs.
#include "service/catalogue/query/source_browser.h"

#include <algorithm>
#include <unordered_set>

#include <fmt/format.h>

namespace vantro::service::catalogue {

namespace {

// For lists of songs.
void keep_first_of_each(std::vector<Entry> &entries) {
    std::unordered_set<SongId> seen;
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&](Entry entry) { return !seen.insert(entry.id()).second; }),
                  entries.end());
}

void take_songs(Rows &&rows, std::vector<Entry> &entries) {
    while (rows.next()) {
        entries.push_back(Entry::song(rows.integer(0)));
    }
}

void take_nodes(Rows &&rows, std::vector<Entry> &entries) {
    while (rows.next()) {
        entries.push_back(Entry::node(rows.integer(0)));
    }
}

} // namespace

SourceBrowser::ListPointer SourceBrowser::all(Kind kind) {
    return kept(std::string(1, kind), [&] {
        List list;
        std::vector<int32_t> durations;
        if (kind == kind_song) {
            Rows rows = database_.query("SELECT id, duration FROM song WHERE source = ?1"
                                        " ORDER BY sort, key",
                                        source_);
            while (rows.next()) {
                list.entries.push_back(Entry::song(rows.integer(0)));
                durations.push_back(rows.small(1));
            }
        } else {
            take_nodes(database_.query("SELECT id FROM node WHERE source = ?1 AND kind = ?2"
                                       " ORDER BY sort, key",
                                       source_, kind),
                       list.entries);
        }
        list.place_entries(durations);
        return list;
    });
}

// Every song, by artist and album.
SourceBrowser::ListPointer SourceBrowser::by_album() {
    return kept("by album", [&] {
        List list;
        for (const Kind kind : {kind_artist, kind_no_artist}) {
            const ListPointer artists = all(kind);
            for (const Entry artist : artists->entries) {
                take_artist(artist.id(), list.entries);
            }
        }
        list.place_entries({});
        return list;
    });
}

void SourceBrowser::prepare() {
    for (const Kind kind : {kind_song, kind_album, kind_artist}) {
        all(kind);
    }
    by_album();
    prepare_search();
}

// The songs that an artist has performed on other artists' albums.
void SourceBrowser::take_performed(int64_t artist, std::vector<Entry> &entries) {
    take_songs(database_.query("SELECT song.id FROM song_artist AS performed"
                               " JOIN song ON song.id = performed.song"
                               " JOIN node ON node.id = song.album WHERE performed.artist = ?1"
                               " ORDER BY node.sort, node.key, song.place, song.sort, song.key",
                               artist),
               entries);
}

// The songs of an artist's albums, and those without album.
void SourceBrowser::take_artist(int64_t artist, std::vector<Entry> &entries) {
    for (const Kind kind : {kind_album, kind_no_album}) {
        take_songs(database_.query("SELECT song.id FROM node JOIN song ON song.album = node.id"
                                   " WHERE node.parent = ?1 AND node.kind = ?2"
                                   " ORDER BY node.sort, node.key, song.place, song.sort, song.key",
                                   artist, kind),
                   entries);
    }
}

void SourceBrowser::take_folder(int64_t folder, int depth, std::vector<Entry> &entries) {
    // The scan does not go this deep, but a damaged file may have a circle.
    if (depth > 1000) {
        return;
    }
    std::vector<int64_t> folders;
    {
        Rows rows = database_.query(
            "SELECT id FROM node WHERE parent = ?1 AND kind = ?2 ORDER BY sort, key", folder,
            kind_folder);
        while (rows.next()) {
            folders.push_back(rows.integer(0));
        }
    }
    for (const int64_t each : folders) {
        take_folder(each, depth + 1, entries);
    }
    take_songs(
        database_.query("SELECT id FROM song WHERE folder = ?1 ORDER BY place, sort, key", folder),
        entries);
}

SourceBrowser::ListPointer SourceBrowser::entries(Place place) {
    if (place.id == 0 && place.kind != kind_folder) {
        return place.kind == kind_none ? std::make_shared<const List>() : all(place.kind);
    }
    return kept(fmt::format("{}{}", char{place.kind}, place.id), [&] { return list_of(place); });
}

// The folder at the top of the source; 0 if there is no song.
int64_t SourceBrowser::top_folder() {
    return database_.number(0, "SELECT id FROM node WHERE source = ?1 AND kind = ?2 AND key = ?3",
                            source_, kind_folder, key_of(kind_folder, ""));
}

void SourceBrowser::list_folder(int64_t folder, std::vector<Entry> &entries) {
    take_nodes(database_.query("SELECT id FROM node WHERE parent = ?1 AND kind = ?2"
                               " ORDER BY sort, key",
                               folder, kind_folder),
               entries);
    take_songs(
        database_.query("SELECT id FROM song WHERE folder = ?1 ORDER BY place, sort, key", folder),
        entries);
}

void SourceBrowser::list_artist(int64_t artist, std::vector<Entry> &entries) {
    take_nodes(database_.query("SELECT id FROM node WHERE parent = ?1 AND kind = ?2"
                               " ORDER BY sort, key",
                               artist, kind_album),
               entries);
    take_songs(database_.query("SELECT song.id FROM node JOIN song ON song.album = node.id"
                               " WHERE node.parent = ?1 AND node.kind = ?2"
                               " ORDER BY song.place, song.sort, song.key",
                               artist, kind_no_album),
               entries);
    take_performed(artist, entries);
}

List SourceBrowser::list_of(Place place) {
    List list;
    std::vector<Entry> &entries = list.entries;
    switch (place.kind) {
    case kind_folder:
        if (const int64_t folder = place.id != 0 ? place.id : top_folder(); folder != 0) {
            list_folder(folder, entries);
        }
        break;
    case kind_artist:
        list_artist(place.id, entries);
        break;
    case kind_album:
        take_songs(database_.query("SELECT id FROM song WHERE album = ?1 ORDER BY place, sort, key",
                                   place.id),
                   entries);
        break;
    case kind_genre:
        take_songs(
            database_.query("SELECT song FROM song_genre WHERE genre = ?1 ORDER BY song", place.id),
            entries);
        sort_by(*by_album(), entries);
        break;
    case kind_year:
        take_songs(database_.query("SELECT id FROM song WHERE year = ?1 AND year != 0 ORDER BY id",
                                   place.id),
                   entries);
        sort_by(*by_album(), entries);
        break;
    case kind_playlist:
        take_songs(database_.query("SELECT song.id FROM playlist_entry AS entry JOIN song"
                                   " ON song.source = ?1 AND song.key = entry.key"
                                   " WHERE entry.playlist = ?2 ORDER BY entry.position",
                                   source_, place.id),
                   entries);
        break;
    default:
        break;
    }
    return list;
}

SourceBrowser::ListPointer SourceBrowser::songs(Place place) {
    switch (place.kind) {
    case kind_album:
    case kind_genre:
    case kind_year:
    case kind_playlist:
        if (place.id != 0) {
            return entries(place); // songs only
        }
        break;
    case kind_song:
        if (place.id == 0) {
            return all(kind_song);
        }
        break;
    default:
        break;
    }
    if (place.kind == kind_artist && place.id == 0) {
        return by_album();
    }
    return kept(fmt::format("songs of {}{}", char{place.kind}, place.id),
                [&] { return songs_of(place); });
}

List SourceBrowser::songs_of(Place place) {
    List list;
    if (place.kind == kind_song) {
        list.entries.push_back(Entry::song(place.id));
    } else if (place.kind == kind_artist) {
        take_artist(place.id, list.entries);
        take_performed(place.id, list.entries);
    } else if (place.kind == kind_folder || place.kind == kind_none) {
        if (const int64_t folder = place.id != 0 ? place.id : top_folder(); folder != 0) {
            take_folder(folder, 0, list.entries);
        }
    } else { // a menu, node by node
        const ListPointer nodes = all(place.kind);
        for (const Entry node : nodes->entries) {
            const List part = list_of({place.kind, node.id()});
            list.entries.insert(list.entries.end(), part.entries.begin(), part.entries.end());
        }
        keep_first_of_each(list.entries);
    }
    return list;
}

void SourceBrowser::queue(const List &list, std::vector<QueuedSong> &songs) {
    const ListPointer known = all(kind_song);
    if (songs.empty()) { // otherwise there may be many lists, and reserving for each would copy all
                         // songs each time
        songs.reserve(list.entries.size());
    }
    for (const Entry song : list.entries) {
        if (const List::Place *place = known->find(song)) {
            songs.push_back({song.id(), source_, place->duration_ms});
        }
    }
}

} // namespace vantro::service::catalogue
