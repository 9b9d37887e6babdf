#include "service/catalogue/query/node_folders.h"

#include <cstdint>

namespace vantro::service::catalogue {

std::set<std::string> folders_of(Database &database, SourceBrowser &browser, Place place) {
    if (place.kind == kind_none || place.id == 0) {
        return {""};
    }
    std::set<int64_t> folders;
    std::set<std::string> paths;
    if (place.kind == kind_folder) {
        folders.insert(place.id);
    } else {
        for (const Entry song : browser.songs(place)->entries) {
            folders.insert(database.number(0, "SELECT folder FROM song WHERE id = ?1", song.id()));
        }
    }
    if (place.kind == kind_playlist) {
        Rows row = database.query("SELECT folder FROM playlist WHERE node = ?1", place.id);
        if (row.next()) {
            paths.emplace(row.text(0));
        }
    }
    for (const int64_t folder : folders) {
        Rows row = database.query("SELECT identity FROM node WHERE id = ?1", folder);
        if (row.next()) {
            paths.emplace(row.text(0));
        }
    }
    return paths;
}

} // namespace vantro::service::catalogue
