// The part of SourceBrowser that makes the lists of nodes and songs.
#include "service/catalogue/query/source_browser.h"

#include <algorithm>
#include <unordered_set>

#include <fmt/format.h>

namespace vantro::service::catalogue {

namespace {

void keep_first_of_each(std::vector<Entry> &entries) {
    std::unordered_set<Entry> seen;
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&](Entry entry) { return !seen.insert(entry).second; }),
                  entries.end());
}

} // namespace

void SourceBrowser::take(Rows &&rows, std::vector<Entry> &entries, int sign) {
    while (rows.next()) {
        entries.push_back(sign * rows.integer(0));
    }
}

SourceBrowser::ListPointer SourceBrowser::all(char kind) {
    return kept(std::string(1, kind), [&] {
        List list;
        std::vector<int32_t> durations;
        if (kind == kind_song) {
            Rows rows = database_.query("SELECT id, duration FROM song WHERE source = ?1"
                                        " ORDER BY sort, key",
                                        source_);
            while (rows.next()) {
                list.entries.push_back(rows.integer(0));
                durations.push_back(rows.small(1));
            }
        } else {
            take(database_.query("SELECT id FROM node WHERE source = ?1 AND kind = ?2"
                                 " ORDER BY sort, key",
                                 source_, kind),
                 list.entries, -1);
        }
        list.place_entries(durations);
        return list;
    });
}

// Every song: artist by artist, album by album.
SourceBrowser::ListPointer SourceBrowser::by_album() {
    return kept("by album", [&] {
        List list;
        for (const char kind : {char{kind_artist}, char{kind_no_artist}}) {
            const ListPointer artists = all(kind);
            for (const Entry artist : artists->entries) {
                take_artist(-artist, list.entries);
            }
        }
        list.place_entries({});
        return list;
    });
}

void SourceBrowser::prepare() {
    for (const char kind : {char{kind_song}, char{kind_album}, char{kind_artist}}) {
        all(kind);
    }
    by_album();
}

// What an artist has performed for albums of others.
void SourceBrowser::take_performed(int64_t artist, std::vector<Entry> &entries) {
    take(database_.query("SELECT song.id FROM song_artist AS performed"
                         " JOIN song ON song.id = performed.song"
                         " JOIN node ON node.id = song.album WHERE performed.artist = ?1"
                         " ORDER BY node.sort, node.key, song.place, song.sort, song.key",
                         artist),
         entries, 1);
}

// The songs of an artist's albums, and those without album.
void SourceBrowser::take_artist(int64_t artist, std::vector<Entry> &entries) {
    for (const char kind : {char{kind_album}, char{kind_no_album}}) {
        take(database_.query("SELECT song.id FROM node JOIN song ON song.album = node.id"
                             " WHERE node.parent = ?1 AND node.kind = ?2"
                             " ORDER BY node.sort, node.key, song.place, song.sort, song.key",
                             artist, kind),
             entries, 1);
    }
}

void SourceBrowser::take_folder(int64_t folder, int depth, std::vector<Entry> &entries) {
    // Deeper than the scan goes; a damaged file may have a circle.
    if (depth > 1000) {
        return;
    }
    std::vector<Entry> folders;
    take(database_.query("SELECT id FROM node WHERE parent = ?1 AND kind = ?2 ORDER BY sort, key",
                         folder, char{kind_folder}),
         folders, 1);
    for (const Entry each : folders) {
        take_folder(each, depth + 1, entries);
    }
    take(database_.query("SELECT id FROM song WHERE folder = ?1 ORDER BY place, sort, key", folder),
         entries, 1);
}

SourceBrowser::ListPointer SourceBrowser::entries(Place place) {
    if (place.id == 0 && place.kind != kind_folder) {
        return place.kind == 0 ? std::make_shared<const List>() : all(place.kind);
    }
    return kept(fmt::format("{}{}", place.kind, place.id), [&] { return list_of(place); });
}

List SourceBrowser::list_of(Place place) {
    List list;
    std::vector<Entry> &entries = list.entries;
    switch (place.kind) {
    case kind_folder:
        if (place.id == 0) {
            place.id = database_.number(
                0, "SELECT id FROM node WHERE source = ?1 AND kind = ?2 AND key = ?3", source_,
                char{kind_folder}, key_of(kind_folder, ""));
        }
        if (place.id == 0) {
            break;
        }
        take(database_.query("SELECT id FROM node WHERE parent = ?1 AND kind = ?2"
                             " ORDER BY sort, key",
                             place.id, char{kind_folder}),
             entries, -1);
        take(database_.query("SELECT id FROM song WHERE folder = ?1 ORDER BY place, sort, key",
                             place.id),
             entries, 1);
        break;
    case kind_artist:
        take(database_.query("SELECT id FROM node WHERE parent = ?1 AND kind = ?2"
                             " ORDER BY sort, key",
                             place.id, char{kind_album}),
             entries, -1);
        take(database_.query("SELECT song.id FROM node JOIN song ON song.album = node.id"
                             " WHERE node.parent = ?1 AND node.kind = ?2"
                             " ORDER BY song.place, song.sort, song.key",
                             place.id, char{kind_no_album}),
             entries, 1);
        take_performed(place.id, entries);
        break;
    case kind_album:
        take(database_.query("SELECT id FROM song WHERE album = ?1 ORDER BY place, sort, key",
                             place.id),
             entries, 1);
        break;
    case kind_genre:
        take(
            database_.query("SELECT song FROM song_genre WHERE genre = ?1 ORDER BY song", place.id),
            entries, 1);
        sort_by(*by_album(), entries);
        break;
    case kind_year:
        take(database_.query("SELECT id FROM song WHERE year = ?1 AND year != 0 ORDER BY id",
                             place.id),
             entries, 1);
        sort_by(*by_album(), entries);
        break;
    case kind_playlist:
        take(database_.query("SELECT song.id FROM playlist_entry AS entry JOIN song"
                             " ON song.source = ?1 AND song.key = entry.key"
                             " WHERE entry.playlist = ?2 ORDER BY entry.position",
                             source_, place.id),
             entries, 1);
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
    return kept(fmt::format("songs of {}{}", place.kind, place.id),
                [&] { return songs_of(place); });
}

List SourceBrowser::songs_of(Place place) {
    List list;
    if (place.kind == kind_song) {
        list.entries.push_back(place.id);
    } else if (place.kind == kind_artist) {
        take_artist(place.id, list.entries);
        take_performed(place.id, list.entries);
    } else if (place.kind == kind_folder || place.kind == 0) {
        if (place.id == 0) {
            place.id = database_.number(
                0, "SELECT id FROM node WHERE source = ?1 AND kind = ?2 AND key = ?3", source_,
                char{kind_folder}, key_of(kind_folder, ""));
        }
        if (place.id != 0) {
            take_folder(place.id, 0, list.entries);
        }
    } else { // a menu, node by node
        const ListPointer nodes = all(place.kind);
        for (const Entry node : nodes->entries) {
            const List part = list_of({place.kind, -node});
            list.entries.insert(list.entries.end(), part.entries.begin(), part.entries.end());
        }
        keep_first_of_each(list.entries);
    }
    return list;
}

void SourceBrowser::queue(const List &list, std::vector<QueuedSong> &songs) {
    const ListPointer known = all(kind_song);
    songs.reserve(songs.size() + list.entries.size());
    for (const Entry song : list.entries) {
        if (const List::Place *place = known->find(song)) {
            songs.push_back({song, source_, place->duration_ms});
        }
    }
}

} // namespace vantro::service::catalogue
