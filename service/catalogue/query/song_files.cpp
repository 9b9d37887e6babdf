#include "service/catalogue/query/song_files.h"

#include <optional>

#include <vantro/catalogue.h>

#include "service/catalogue/files/catalogued_song.h"
#include "service/catalogue/files/playlist_file.h"
#include "service/catalogue/files/song_file.h"
#include "service/catalogue/text/digest.h"
#include "service/catalogue/text/node_ids.h"

namespace vantro::service::catalogue {

std::string uid_of(std::string_view directory) {
    return digest(directory).substr(0, 32);
}

LocatedSong file_of(Database &database, SongId song) {
    Rows row = database.query(
        "SELECT source.path, song.key, node.identity, song.file, song.name, song.duration, tags"
        " FROM song JOIN song_detail AS detail ON detail.song = song.id"
        " JOIN node ON node.id = song.folder JOIN source ON source.id = song.source"
        " WHERE song.id = ?1",
        song);
    LocatedSong file;
    if (row.next()) {
        file.uid = uid_of(row.text(0));
        file.node = NodeId(kind_song, row.integer(1)).text();
        file.path = path_below(row.text(0), path_below(row.text(2), row.text(3)));
        file.title = row.text(4);
        file.duration_ms = row.small(5);
        file.artist = Tags{std::string(row.text(6))}.get(VANTRO_KEY_ARTIST);
    }
    return file;
}

QueuedSong SongFinder::by_key(int32_t source, int64_t key) {
    Rows row = database_.query("SELECT id, duration FROM song WHERE source = ?1 AND key = ?2",
                               source, key);
    return row.next() ? QueuedSong{row.integer(0), source, row.small(1)} : QueuedSong{};
}

QueuedSong SongFinder::find(const SongName &name) {
    const std::optional<NodeRef> ref = parse_node_id(name.node);
    for (const Where &where : sources_) {
        if (!ref || ref->kind != kind_song || where.uid != name.uid) {
            continue;
        }
        if (const QueuedSong found = by_key(where.source, ref->key); found.id != 0) {
            return found;
        }
    }
    for (const Where &where : sources_) {
        const std::optional<std::string> path = resolve_entry(name.entry, "", where.directory);
        if (!path) {
            continue;
        }
        if (const QueuedSong found = by_key(where.source, key_of(kind_song, *path));
            found.id != 0) {
            return found;
        }
    }
    return {};
}

} // namespace vantro::service::catalogue
