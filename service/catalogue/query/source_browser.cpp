#include "service/catalogue/query/source_browser.h"

#include <algorithm>

#include <fmt/format.h>

#include <vantro/catalogue.h>

namespace vantro::service::catalogue {

namespace {

struct Menu {
    const char *id;
    const char *name;
    Kind kind;
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

int32_t type_of(Kind kind) {
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

} // namespace

NodeRow row_of(const Node &node) {
    return {node.id, node.name, node.type, node.count, node.source, node.source_type, node.song};
}

std::pair<size_t, size_t> bounds(Range range, size_t size) {
    const size_t first = std::min(static_cast<size_t>(std::max(range.offset, 0)), size);
    const size_t rest = size - first;
    const size_t count = range.count <= 0 ? rest : std::min(static_cast<size_t>(range.count), rest);
    return {first, first + count};
}

SourceBrowser::SourceBrowser(Database &database, ListCache &cache, int32_t source,
                             int32_t source_type)
    : database_(database), cache_(cache), source_(source), source_type_(source_type),
      catalogue_(cache.clears()),
      generation_(database.number(0, "SELECT generation FROM source WHERE id = ?1", source)) {}

SourceBrowser::ListPointer SourceBrowser::kept(const std::string &what,
                                               const std::function<List()> &make) {
    return cache_.get(name_of_list(what), make);
}

std::string SourceBrowser::name_of_list(const std::string &what) const {
    return fmt::format("{} {} {}", source_, generation_, what);
}

int64_t SourceBrowser::song_count() {
    return database_.number(0, "SELECT songs FROM source WHERE id = ?1", source_);
}

std::optional<Place> SourceBrowser::find(std::string_view node) {
    constexpr std::string_view root = VANTRO_NODE_ROOT;
    if (node == root) {
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

std::vector<Node> SourceBrowser::menus() {
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
        nodes.push_back(
            {menu.id, menu.name, type, static_cast<int32_t>(count), source_, source_type_});
    }
    return nodes;
}

Node SourceBrowser::node(Entry entry) {
    Node node;
    node.source_type = source_type_;
    if (entry.is_song()) {
        node.type = VANTRO_NODE_SONG;
        Rows row = database_.query("SELECT key, name, source FROM song WHERE id = ?1", entry.id());
        if (row.next()) {
            node.id = NodeId(kind_song, row.integer(0)).text();
            node.name = row.text(1);
            node.source = row.small(2);
            node.song = entry.id();
        }
        return node;
    }
    Rows row = database_.query("SELECT kind, key, name, count, source FROM node WHERE id = ?1",
                               entry.id());
    if (row.next()) {
        const Kind kind = static_cast<Kind>(row.integer(0));
        node.id = NodeId(kind, row.integer(1)).text();
        node.name = row.text(2);
        node.type = type_of(kind);
        node.count = row.small(3);
        node.source = row.small(4);
    }
    return node;
}

// One index has all songs in the order of the list, with all columns that a node needs. A page is
// read along this index. The reading begins at the song that the list has at that place, or, while
// the list is not made yet, after that many steps.
void SourceBrowser::songs_by_name(Range range, NodeSink &nodes) {
    const auto [first, last] = bounds(range, static_cast<size_t>(song_count()));
    if (first == last) {
        return;
    }
    nodes.expect(last - first);
    size_t left = last - first;
    const auto give = [&](Rows &&rows) {
        for (; left > 0 && rows.next(); --left) {
            const NodeId id(kind_song, rows.integer(0));
            if (!nodes.take({id.text(), rows.text(1), VANTRO_NODE_SONG, 0, source_, source_type_,
                             rows.integer(2)})) {
                left = 1; // no more nodes are wanted
            }
        }
    };
    const ListPointer list = cache_.find(name_of_list(std::string(1, kind_song)));
    if (!list || first >= list->entries.size()) {
        give(database_.query("SELECT key, name, id FROM song WHERE source = ?1 ORDER BY sort, key"
                             " LIMIT -1 OFFSET ?2",
                             source_, first));
        return;
    }
    Rows begin =
        database_.query("SELECT sort, key FROM song WHERE id = ?1", list->entries[first].id());
    if (!begin.next()) {
        return;
    }
    const std::string sort(begin.text(0));
    // Two queries: comparing every row with sort and key would take most of the time.
    give(database_.query(
        "SELECT key, name, id FROM song WHERE source = ?1 AND sort = ?2 AND key >= ?3"
        " ORDER BY key",
        source_, Blob{sort}, begin.integer(1)));
    give(database_.query("SELECT key, name, id FROM song WHERE source = ?1 AND sort > ?2"
                         " ORDER BY sort, key",
                         source_, Blob{sort}));
}

void SourceBrowser::browse(Place place, Range range, NodeSink &nodes) {
    if (place.kind == kind_none) {
        const std::vector<Node> tops = menus();
        const auto [first, last] = bounds(range, tops.size());
        for (size_t i = first; i < last; ++i) {
            nodes.take(row_of(tops[i]));
        }
        return;
    }
    const bool all_songs = place.kind == kind_song && place.id == 0;
    const ListPointer list = all_songs ? nullptr : entries(place);
    const auto [first, last] =
        bounds(range, list ? list->entries.size() : static_cast<size_t>(song_count()));
    const std::string name = name_of_list(fmt::format("{}{}", char{place.kind}, place.id));
    if (nodes.has(fmt::format("{} {} {}", catalogue_, source_type_, name), first, last)) {
        return;
    }
    if (list) {
        this->nodes(std::span(list->entries).subspan(first, last - first), nodes);
    } else {
        songs_by_name(range, nodes);
    }
}

void SourceBrowser::nodes(std::span<const Entry> entries, NodeSink &nodes) {
    // Looked up in the order of the file, where neighbours share a page.
    std::vector<std::pair<Entry, size_t>> wanted;
    wanted.reserve(entries.size());
    for (const Entry entry : entries) {
        wanted.emplace_back(entry, wanted.size());
    }
    std::sort(wanted.begin(), wanted.end());
    std::vector<Node> found(entries.size());
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

} // namespace vantro::service::catalogue
