// The part of Writer that handles whole folders.
#include "service/catalogue/database/writer.h"

#include <utility>

namespace vantro::service::catalogue {

namespace {

// Texts that sort directly before and directly after every path below `folder`.
std::pair<std::string, std::string> below(std::string_view folder) {
    return {std::string(folder) + '/', std::string(folder) + '0'}; // '0' follows '/'
}

void take_files(KnownFolder &known, Rows &&rows, bool left_out = false) {
    while (rows.next()) {
        known.files[std::string(rows.text(0))] = {{rows.integer(1), rows.integer(2)}, left_out};
    }
}

// The rows hold paths of folders that begin with `parent`.
void take_folders(KnownFolder &known, Rows &&rows, std::string_view parent) {
    while (rows.next()) {
        const std::string_view rest = rows.text(0).substr(parent.size());
        known.folders.emplace(rest.substr(0, rest.find('/')));
    }
}

} // namespace

KnownFolder Writer::known(int32_t source, std::string_view folder) {
    KnownFolder known;
    int64_t key = 0;
    const int64_t node = find_node(source, kind_folder, folder, key);
    {
        Rows rows =
            database_.query("SELECT file, modified, size, sheet FROM song WHERE folder = ?1", node);
        while (rows.next()) {
            known.files[std::string(rows.text(0))] = {
                {rows.integer(1), rows.integer(2)}, false, rows.integer(3)};
        }
    }
    take_files(known, database_.query("SELECT file, modified, size FROM playlist"
                                      " WHERE source = ?1 AND folder = ?2",
                                      source, Blob{folder}));
    take_files(known,
               database_.query("SELECT file, modified, size FROM left_out"
                               " WHERE source = ?1 AND folder = ?2",
                               source, Blob{folder}),
               true);
    {
        Rows rows = database_.query("SELECT identity FROM node WHERE parent = ?1 AND kind = ?2",
                                    node, kind_folder);
        while (node != 0 && rows.next()) {
            known.folders.insert(place_of(source, rows.text(0)).file);
        }
    }
    // Folders without a song have no node: they are known only by the paths in these tables.
    const std::string first = folder.empty() ? "" : below(folder).first;
    const std::string last = folder.empty() ? std::string(256, '\xFF') : below(folder).second;
    take_folders(known,
                 database_.query("SELECT DISTINCT folder FROM left_out"
                                 " WHERE source = ?1 AND folder > ?2 AND folder < ?3",
                                 source, Blob{first}, Blob{last}),
                 first);
    take_folders(known,
                 database_.query("SELECT DISTINCT folder FROM playlist"
                                 " WHERE source = ?1 AND folder > ?2 AND folder < ?3",
                                 source, Blob{first}, Blob{last}),
                 first);
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
    Rows rows = database_.query("SELECT id, album, year FROM song WHERE folder = ?1", folder);
    while (rows.next()) {
        songs.push_back({rows.integer(0), folder, rows.integer(1), rows.integer(2)});
    }
    for (const SongRow &song : songs) {
        remove_song(source, song);
    }
}

void Writer::remove_folder(int32_t source, std::string_view folder) {
    begin();
    std::vector<int64_t> folders;
    int64_t key = 0;
    if (const int64_t node = find_node(source, kind_folder, folder, key); node != 0) {
        folders.push_back(node);
    }
    while (!folders.empty()) {
        const int64_t node = folders.back();
        folders.pop_back();
        remove_songs_of(source, node);
        Rows inside = database_.query("SELECT id FROM node WHERE parent = ?1 AND kind = ?2", node,
                                      kind_folder);
        while (inside.next()) {
            folders.push_back(inside.integer(0));
        }
    }
    const auto [first, last] = below(folder);
    std::vector<int64_t> playlists;
    {
        Rows rows = database_.query("SELECT node FROM playlist WHERE source = ?1"
                                    " AND (folder = ?2 OR (folder > ?3 AND folder < ?4))",
                                    source, Blob{folder}, Blob{first}, Blob{last});
        while (rows.next()) {
            playlists.push_back(rows.integer(0));
        }
    }
    for (const int64_t playlist : playlists) {
        remove_playlist(source, playlist);
    }
    database_.run("DELETE FROM left_out WHERE source = ?1"
                  " AND (folder = ?2 OR (folder > ?3 AND folder < ?4))",
                  source, Blob{folder}, Blob{first}, Blob{last});
    database_.run("DELETE FROM folder_image WHERE source = ?1"
                  " AND (folder = ?2 OR (folder > ?3 AND folder < ?4))",
                  source, Blob{folder}, Blob{first}, Blob{last});
}

} // namespace vantro::service::catalogue
