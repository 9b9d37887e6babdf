// The part of Writer that keeps nodes: the artists, albums, genres, years and folders of songs.
#include "service/catalogue/database/writer.h"

#include <utility>

#include <fmt/format.h>

#include "service/catalogue/text/collation.h"
#include "service/catalogue/text/search_words.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

namespace {

// Most nodes in `nodes_`: enough for the artists and albums that a scan meets again and again.
constexpr size_t nodes_kept = 4096;

// The number of salts that are tried if an identity's key is taken. In practice fewer are used.
constexpr int salts_max = 8;

} // namespace

int64_t Writer::find_node(int32_t source, Kind kind, std::string_view identity, int64_t &key) {
    return find_by_key(kind, identity, key, [&](int64_t each) {
        Rows row = database_.query(
            "SELECT id, identity FROM node WHERE source = ?1 AND kind = ?2 AND key = ?3", source,
            kind, each);
        if (!row.next()) {
            return Match{0, false};
        }
        return Match{row.integer(0), row.text(1) == identity};
    });
}

// Looks for the row with that identity. Returns 0 if there is none; then `key` is the key for it.
// Two identities with the same digest get different keys: the second one takes a salted key, and
// keeps it even when the first one is removed.
int64_t Writer::find_by_key(Kind kind, std::string_view identity, int64_t &key,
                            const std::function<Match(int64_t key)> &look) {
    const int64_t plain = key_of(kind, identity);
    key = plain;
    Match found = look(plain);
    if (found.same || (found.id == 0 && !shared(plain))) {
        return found.id;
    }
    bool has_key = found.id == 0;
    for (int salt = 1; salt <= salts_max || !has_key; ++salt) {
        const int64_t salted = key_of(kind, identity, salt);
        found = look(salted);
        if (found.same) {
            key = salted;
            return found.id;
        }
        if (found.id == 0 && !std::exchange(has_key, true)) {
            key = salted;
        }
    }
    database_.run("INSERT OR IGNORE INTO shared_key(key) VALUES(?1)", plain);
    return 0;
}

bool Writer::shared(int64_t key) {
    return database_.number(0, "SELECT 1 FROM shared_key WHERE key = ?1", key) == 1;
}

int64_t Writer::node_at(int32_t source, Kind kind, const FoundName &name, int64_t parent,
                        std::string_view artist) {
    std::string known = fmt::format("{} {} ", source, char{kind}) + name.identity;
    if (const auto found = nodes_.find(known); found != nodes_.end()) {
        return found->second;
    }
    int64_t key = 0;
    int64_t id = find_node(source, kind, name.identity, key);
    if (id == 0) {
        database_.run("INSERT INTO node(source, kind, key, parent, name, identity, sort)"
                      " VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)",
                      source, kind, key, parent, name.text, Blob{name.identity}, Blob{name.sort});
        id = database_.last_id();
        if (parent != 0 && kind != kind_no_album) {
            count(parent, 1);
        }
        count(id, 0); // so that commit() removes it if it stays empty
        const std::string words = search_words(name.text);
        if (kind == kind_artist) {
            database_.run("INSERT INTO node_words(rowid, artist) VALUES(?1, ?2)", id, words);
        } else if (kind == kind_album) {
            database_.run("INSERT INTO node_words(rowid, album, of_artist) VALUES(?1, ?2, ?3)", id,
                          words, search_words(artist));
        } else if (kind == kind_genre) {
            database_.run("INSERT INTO node_words(rowid, genre) VALUES(?1, ?2)", id, words);
        }
    }
    if (nodes_.size() >= nodes_kept) {
        nodes_.clear();
    }
    nodes_.emplace(std::move(known), id);
    return id;
}

// The node of a folder. Makes that node and those of the folders above if they are missing.
int64_t Writer::folder_at(int32_t source, std::string_view folder) {
    const std::string known =
        fmt::format("{} {} ", source, char{kind_folder}) + std::string(folder);
    if (const auto found = nodes_.find(known); found != nodes_.end()) {
        return found->second;
    }
    const FileName place = place_of(source, folder);
    const int64_t parent = folder.empty() ? 0 : folder_at(source, place.folder);
    FoundName name{clean_text(place.file, tag_text_max), std::string(folder), {}};
    name.sort = sort_key(name.text);
    return node_at(source, kind_folder, name, parent);
}

int64_t Writer::year_at(int32_t source, int32_t year) {
    if (year == 0) {
        return 0;
    }
    int64_t id =
        database_.number(0, "SELECT id FROM node WHERE source = ?1 AND kind = ?2 AND key = ?3",
                         source, kind_year, year);
    if (id == 0) {
        const std::string text = std::to_string(year);
        database_.run("INSERT INTO node(source, kind, key, parent, name, identity, sort)"
                      " VALUES(?1, ?2, ?3, 0, ?4, ?5, ?6)",
                      source, kind_year, year, text, Blob{text}, Blob{fmt::format("{:05}", year)});
        id = database_.last_id();
    }
    return id;
}

void Writer::count(int64_t node, int difference) {
    if (node != 0) {
        counts_[node] += difference;
    }
}

// Removes nodes that are empty now, then their parents that become empty thereby.
void Writer::apply_counts() {
    while (!counts_.empty()) {
        std::unordered_map<int64_t, int> now;
        now.swap(counts_);
        for (const auto &[node, difference] : now) {
            if (difference != 0) {
                database_.run("UPDATE node SET count = count + ?2 WHERE id = ?1", node, difference);
            }
            const int64_t left = database_.number(1, "SELECT count FROM node WHERE id = ?1", node);
            // A node that was counted again meanwhile stays for the next round.
            if (left <= 0 && counts_.count(node) == 0) {
                remove_node(node);
            }
        }
    }
}

void Writer::remove_node(int64_t node) {
    Kind kind = kind_none;
    int64_t parent = 0;
    {
        Rows row = database_.query("SELECT kind, parent FROM node WHERE id = ?1", node);
        if (!row.next()) {
            return;
        }
        kind = static_cast<Kind>(row.integer(0));
        parent = row.integer(1);
    }
    if (kind == kind_artist || kind == kind_album || kind == kind_genre) {
        database_.run("DELETE FROM node_words WHERE rowid = ?1", node);
    }
    database_.run("DELETE FROM node WHERE id = ?1", node);
    if (kind != kind_no_album) {
        count(parent, -1);
    }
    nodes_.clear();
}

} // namespace vantro::service::catalogue
