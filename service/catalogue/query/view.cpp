#include "service/catalogue/query/view.h"

#include <algorithm>
#include <unordered_set>

#include <fmt/format.h>

#include <vantro/catalogue.h>

#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

namespace {

struct Menu {
    const char *id;
    const char *name;
    char kind;
};

constexpr Menu menu_table[] = {
    {"artists", "Artists", kind_artist},
    {"albums", "Albums", kind_album},
    {"genres", "Genres", kind_genre},
    {"years", "Years", kind_year},
    {"songs", "Songs", kind_song},
    {"folders", "Folders", kind_folder},
    {"playlists", "Playlists", kind_playlist},
};

int32_t type_of(char kind) {
    switch (kind) {
    case kind_artist:
        return VANTRO_NODE_ARTIST;
    case kind_album:
        return VANTRO_NODE_ALBUM;
    case kind_folder:
        return VANTRO_NODE_FOLDER;
    case kind_genre:
        return VANTRO_NODE_GENRE;
    case kind_playlist:
        return VANTRO_NODE_PLAYLIST;
    case kind_year:
        return VANTRO_NODE_YEAR;
    default:
        return VANTRO_NODE_UNKNOWN;
    }
}

void keep_first_of_each(std::vector<Entry> &entries) {
    std::unordered_set<Entry> seen;
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&](Entry entry) { return !seen.insert(entry).second; }),
                  entries.end());
}

// Leaves those entries, which are sorted, that `order` has too, and sorts them as it is.
void sort_by(const List &order, std::vector<Entry> &entries) {
    if (entries.size() < order.places.size() / 64) {
        std::vector<uint32_t> found;
        for (const Entry entry : entries) {
            if (const List::Place *place = order.find(entry)) {
                found.push_back(place->at);
            }
        }
        std::sort(found.begin(), found.end());
        entries.resize(found.size());
        std::transform(found.begin(), found.end(), entries.begin(),
                       [&](uint32_t at) { return order.entries[at]; });
        return;
    }
    // Of many, going through the whole order is faster than sorting them.
    std::vector<char> found(order.entries.size());
    auto place = order.places.begin();
    for (const Entry entry : entries) {
        while (place != order.places.end() && place->entry < entry) {
            ++place;
        }
        if (place != order.places.end() && place->entry == entry) {
            found[place->at] = 1;
        }
    }
    entries.clear();
    for (size_t at = 0; at < found.size(); ++at) {
        if (found[at] != 0) {
            entries.push_back(order.entries[at]);
        }
    }
}

} // namespace

NodeRow row_of(const Node &node) {
    return {node.id, node.name, node.type, node.count, node.source, node.source_type};
}

std::pair<size_t, size_t> bounds(Range range, size_t size) {
    const size_t first = std::min(static_cast<size_t>(std::max(range.offset, 0)), size);
    const size_t rest = size - first;
    const size_t count = range.count <= 0 ? rest : std::min(static_cast<size_t>(range.count), rest);
    return {first, first + count};
}

View::View(Database &database, ListCache &cache, int32_t source)
    : database_(database), cache_(cache), source_(source),
      generation_(database.number(0, "SELECT generation FROM source WHERE id = ?1", source)) {}

View::ListPointer View::kept(const std::string &what, const std::function<List()> &make) {
    return cache_.get(name_of_list(what), make);
}

std::string View::name_of_list(const std::string &what) const {
    return fmt::format("{} {} {}", source_, generation_, what);
}

int64_t View::song_count() {
    return database_.number(0, "SELECT songs FROM source WHERE id = ?1", source_);
}

std::optional<Place> View::find(std::string_view node) {
    if (node == VANTRO_NODE_ROOT) {
        return Place{};
    }
    for (const Menu &menu : menu_table) {
        if (node == menu.id) {
            return Place{menu.kind, 0};
        }
    }
    const std::optional<NodeRef> ref = parse_node_id(node);
    if (!ref) {
        return std::nullopt;
    }
    const int64_t id =
        ref->kind == kind_song
            ? database_.number(0, "SELECT id FROM song WHERE source = ?1 AND key = ?2", source_,
                               ref->key)
            : database_.number(0,
                               "SELECT id FROM node WHERE source = ?1 AND kind = ?2 AND key = ?3",
                               source_, ref->kind, ref->key);
    if (id == 0) {
        return std::nullopt;
    }
    return Place{ref->kind, id};
}

void View::take(Rows &&rows, std::vector<Entry> &entries, int sign) {
    while (rows.next()) {
        entries.push_back(sign * rows.integer(0));
    }
}

View::ListPointer View::all(char kind) {
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
View::ListPointer View::by_album() {
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

void View::prepare() {
    for (const char kind : {char{kind_song}, char{kind_album}, char{kind_artist}}) {
        all(kind);
    }
    by_album();
}

// What an artist has performed for albums of others.
void View::take_performed(int64_t artist, std::vector<Entry> &entries) {
    take(database_.query("SELECT song.id FROM song JOIN node ON node.id = song.album"
                         " WHERE song.performer = ?1"
                         " ORDER BY node.sort, node.key, song.place, song.sort, song.key",
                         artist),
         entries, 1);
}

// The songs of an artist's albums, and those without album.
void View::take_artist(int64_t artist, std::vector<Entry> &entries) {
    for (const char kind : {char{kind_album}, char{kind_no_album}}) {
        take(database_.query("SELECT song.id FROM node JOIN song ON song.album = node.id"
                             " WHERE node.parent = ?1 AND node.kind = ?2"
                             " ORDER BY node.sort, node.key, song.place, song.sort, song.key",
                             artist, kind),
             entries, 1);
    }
}

void View::take_folder(int64_t folder, int depth, std::vector<Entry> &entries) {
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

View::ListPointer View::entries(Place place) {
    if (place.id == 0 && place.kind != kind_folder) {
        return place.kind == 0 ? std::make_shared<const List>() : all(place.kind);
    }
    return kept(fmt::format("{}{}", place.kind, place.id), [&] { return list_of(place); });
}

List View::list_of(Place place) {
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

View::ListPointer View::songs(Place place) {
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

List View::songs_of(Place place) {
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

void View::queue(const List &list, std::vector<QueuedSong> &songs) {
    const ListPointer known = all(kind_song);
    songs.reserve(songs.size() + list.entries.size());
    for (const Entry song : list.entries) {
        if (const List::Place *place = known->find(song)) {
            songs.push_back({song, source_, place->duration_ms});
        }
    }
}

std::vector<Node> View::menus() {
    std::vector<Node> nodes;
    for (const Menu &menu : menu_table) {
        const int32_t type = menu.kind == kind_folder ? VANTRO_NODE_FOLDER : VANTRO_NODE_MENU;
        const int64_t count =
            menu.kind == kind_song ? song_count()
            : menu.kind == kind_folder
                ? database_.number(
                      0, "SELECT count FROM node WHERE source = ?1 AND kind = ?2 AND key = ?3",
                      source_, menu.kind, key_of(kind_folder, ""))
                : database_.number(0, "SELECT COUNT(*) FROM node WHERE source = ?1 AND kind = ?2",
                                   source_, menu.kind);
        nodes.push_back({menu.id, menu.name, type, static_cast<int32_t>(count), source_,
                         VANTRO_SOURCE_DIRECTORY});
    }
    return nodes;
}

Node View::node(Entry entry) {
    Node node;
    node.source_type = VANTRO_SOURCE_DIRECTORY;
    if (entry > 0) {
        node.type = VANTRO_NODE_SONG;
        Rows row = database_.query("SELECT key, name, source FROM song WHERE id = ?1", entry);
        if (row.next()) {
            node.id = NodeId(kind_song, row.integer(0)).text();
            node.name = row.text(1);
            node.source = row.small(2);
        }
        return node;
    }
    Rows row =
        database_.query("SELECT kind, key, name, count, source FROM node WHERE id = ?1", -entry);
    if (row.next()) {
        const char kind = static_cast<char>(row.integer(0));
        node.id = NodeId(kind, row.integer(1)).text();
        node.name = row.text(2);
        node.type = type_of(kind);
        node.count = row.small(3);
        node.source = row.small(4);
    }
    return node;
}

// The whole of the list of songs lies in one index in its order, with all that a node needs. A page
// is a walk along it, which begins where the list says, or, while that is being made at the start,
// after so many steps.
void View::songs_by_name(Range range, NodeSink &nodes) {
    const auto [first, last] = bounds(range, static_cast<size_t>(song_count()));
    if (first == last) {
        return;
    }
    nodes.expect(last - first);
    size_t left = last - first;
    const auto give = [&](Rows &&rows) {
        for (; left > 0 && rows.next(); --left) {
            const NodeId id(kind_song, rows.integer(0));
            if (!nodes.take({id.text(), rows.text(1), VANTRO_NODE_SONG, 0, source_,
                             VANTRO_SOURCE_DIRECTORY})) {
                left = 1; // no more is wanted
            }
        }
    };
    const ListPointer list = cache_.find(name_of_list(std::string(1, kind_song)));
    if (!list || first >= list->entries.size()) {
        give(database_.query("SELECT key, name FROM song WHERE source = ?1 ORDER BY sort, key"
                             " LIMIT -1 OFFSET ?2",
                             source_, first));
        return;
    }
    Rows begin = database_.query("SELECT sort, key FROM song WHERE id = ?1", list->entries[first]);
    if (!begin.next()) {
        return;
    }
    const std::string sort(begin.text(0));
    // In two steps: comparing every row with both would take longer than all else.
    give(database_.query("SELECT key, name FROM song WHERE source = ?1 AND sort = ?2 AND key >= ?3"
                         " ORDER BY key",
                         source_, Blob{sort}, begin.integer(1)));
    give(database_.query("SELECT key, name FROM song WHERE source = ?1 AND sort > ?2"
                         " ORDER BY sort, key",
                         source_, Blob{sort}));
}

void View::browse(Place place, Range range, NodeSink &nodes) {
    if (place.kind == 0) {
        const std::vector<Node> tops = menus();
        const auto [first, last] = bounds(range, tops.size());
        for (size_t i = first; i < last; ++i) {
            nodes.take(row_of(tops[i]));
        }
        return;
    }
    if (place.kind == kind_song && place.id == 0) {
        songs_by_name(range, nodes);
    } else {
        this->nodes(*entries(place), range, nodes);
    }
}

void View::nodes(const List &list, Range range, NodeSink &nodes) {
    const auto [first, last] = bounds(range, list.entries.size());
    // Looked up in the order in which they lie in the file, where neighbours share a page.
    std::vector<std::pair<Entry, size_t>> wanted;
    wanted.reserve(last - first);
    for (size_t i = first; i < last; ++i) {
        wanted.emplace_back(list.entries[i], i - first);
    }
    std::sort(wanted.begin(), wanted.end());
    std::vector<Node> found(last - first);
    for (const auto &[entry, at] : wanted) {
        found[at] = node(entry);
    }
    nodes.expect(found.size());
    for (const Node &each : found) {
        if (!nodes.take(row_of(each))) {
            return;
        }
    }
}

// ------------------------------------------------------------------------------------ searching

std::string match_expression(std::string_view term) {
    const std::string text = clean_text(term, search_bytes_max);
    std::string expression;
    size_t words = 0;
    std::string_view rest = text;
    while (!rest.empty() && words < search_words_max) {
        const size_t end = rest.find_first_of(" \t\r\n\v\f");
        const std::string_view word = rest.substr(0, end);
        rest.remove_prefix(std::min(rest.size(), word.size() + 1));
        if (word.empty()) {
            continue;
        }
        // Within quotes only a quote means anything, and two of them mean one.
        expression += expression.empty() ? "\"" : " \"";
        for (const char c : spaced(word)) {
            expression.append(c == '"' ? 2 : 1, c);
        }
        expression += "\"*";
        ++words;
    }
    return expression;
}

// The index gives its rows by number, which is how places are sorted too.
void View::take_search(const char *sql, const std::string &words, char kind,
                       std::vector<Entry> &entries) {
    std::vector<Entry> found;
    take(database_.query(sql, words), found, kind == kind_song ? 1 : -1);
    sort_by(*all(kind), found);
    entries.insert(entries.end(), found.begin(), found.end());
}

std::optional<View::ListPointer> View::search(std::string_view filter, std::string_view term) {
    struct Part {
        char kind;
        const char *columns;
    };
    struct Filter {
        std::string_view name;
        std::vector<Part> parts;
    };
    static const Filter filters[] = {
        {"", {{kind_artist, "{artist}"}, {kind_album, "{album of_artist}"}, {kind_song, nullptr}}},
        {VANTRO_FILTER_ARTIST, {{kind_artist, "{artist}"}}},
        {VANTRO_FILTER_ALBUM, {{kind_album, "{album}"}}},
        {VANTRO_FILTER_TITLE, {{kind_song, "{title}"}}},
        {VANTRO_FILTER_GENRE, {{kind_genre, "{genre}"}}},
        {VANTRO_FILTER_COMPOSER, {{kind_song, "{composer}"}}},
    };
    const auto *found = std::find_if(std::begin(filters), std::end(filters),
                                     [&](const Filter &each) { return each.name == filter; });
    if (found == std::end(filters)) {
        return std::nullopt;
    }
    const std::string words = match_expression(term);
    if (words.empty()) {
        return std::make_shared<const List>();
    }
    return kept(fmt::format("search {} {}", filter, words), [&] {
        List list;
        for (const Part &part : found->parts) {
            const std::string expression =
                part.columns ? fmt::format("{} : ({})", part.columns, words) : words;
            take_search(part.kind == kind_song
                            ? "SELECT rowid FROM song_words WHERE song_words MATCH ?1"
                              " ORDER BY rowid"
                            : "SELECT rowid FROM node_words WHERE node_words MATCH ?1"
                              " ORDER BY rowid DESC",
                        expression, part.kind, list.entries);
        }
        return list;
    });
}

} // namespace vantro::service::catalogue
