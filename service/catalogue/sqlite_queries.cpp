// The queries about the catalogue's file.
#include <cerrno>
#include <new>
#include <set>

#include <vantro/catalogue.h>

#include "service/catalogue/files/music_root.h"
#include "service/catalogue/files/song_file.h"
#include "service/catalogue/query/metadata.h"
#include "service/catalogue/query/node_folders.h"
#include "service/catalogue/sqlite_catalogue.h"

namespace vantro::service::catalogue {

// The id is empty if the song is gone, or this service does not have its source.
Node SqliteCatalogue::song_node(SourceBrowser &browser, SongId song) const {
    Node node = song > 0 ? browser.node(Entry::song(song)) : Node();
    const MusicPointer source = directory(node.source);
    if (!source) {
        return {};
    }
    node.source_type = source->type;
    return node;
}

int SqliteCatalogue::browse(int32_t source, std::string_view node, Range range, NodeSink &nodes) {
    return at_node(source, node, [&](Database &, SourceBrowser &browser, Place place) {
        browser.browse(place, range, nodes);
        return 0;
    });
}

int SqliteCatalogue::search(int32_t source, std::string_view filter, std::string_view term,
                            Range range, NodeSink &nodes) {
    return at_node(source, VANTRO_NODE_ROOT, [&](Database &, SourceBrowser &browser, Place) {
        const std::optional<std::vector<Entry>> found = browser.search(filter, term, range);
        if (!found) {
            return EINVAL;
        }
        browser.nodes(*found, nodes);
        return 0;
    });
}

int SqliteCatalogue::metadata(int32_t source, std::string_view node,
                              std::optional<SongMetadata> &metadata) {
    return at_node(source, node, [&](Database &database, SourceBrowser &browser, Place place) {
        SongMetadata found;
        if (place.kind == kind_song && place.id != 0) {
            read_metadata(database, artwork_, place.id, found);
        } else {
            found = catalogue::describe(database, artwork_, browser, place);
        }
        metadata = std::move(found);
        return 0;
    });
}

int SqliteCatalogue::describe(const std::vector<Node> &nodes, std::vector<SongMetadata> &metadata) {
    metadata.resize(nodes.size());
    return guarded([&](Database &database) {
        for (size_t i = 0; i < nodes.size(); ++i) {
            const Node &node = nodes[i];
            if (node.id.empty()) {
                continue;
            }
            if (node.song != 0) {
                read_metadata(database, artwork_, node.song, metadata[i]);
                continue;
            }
            SourceBrowser browser(database, lists_, node.source);
            if (const std::optional<Place> place = browser.find(node.id)) {
                metadata[i] = catalogue::describe(database, artwork_, browser, *place);
            }
        }
        return 0;
    });
}

int SqliteCatalogue::extended_metadata(int32_t source, std::string_view node,
                                       const std::vector<std::string_view> &keys,
                                       std::vector<std::string> &values) {
    return at_node(source, node, [&](Database &database, SourceBrowser &browser, Place place) {
        if (place.kind == kind_song && place.id != 0) {
            const MusicPointer where = directory(source);
            values = read_extended(database, artwork_, where ? where->path : "", place.id, keys);
        } else {
            values = extended_of(catalogue::describe(database, artwork_, browser, place), keys);
        }
        return 0;
    });
}

int SqliteCatalogue::songs(int32_t source, std::string_view node, std::vector<QueuedSong> &songs) {
    return at_node(source, node, [&](Database &, SourceBrowser &browser, Place place) {
        browser.queue(*browser.songs(place), songs);
        return 0;
    });
}

int SqliteCatalogue::rescan_node(int32_t source, std::string_view node) {
    std::set<std::string> folders;
    const int result =
        at_node(source, node, [&](Database &database, SourceBrowser &browser, Place place) {
            folders = folders_of(database, browser, place);
            return 0;
        });
    if (result == 0) {
        scanning_.rescan(source, folders);
    }
    return result;
}

int SqliteCatalogue::all_songs(std::vector<QueuedSong> &songs) {
    return guarded([&](Database &database) {
        for (const auto &each : directories_.all()) {
            SourceBrowser browser(database, lists_, each->id);
            browser.queue(*browser.songs({}), songs);
        }
        return 0;
    });
}

int64_t SqliteCatalogue::song_count() {
    int64_t count = 0;
    attempt([&](Database &database) {
        for (const auto &each : directories_.all()) {
            count += SourceBrowser(database, lists_, each->id).song_count();
        }
        return 0;
    });
    return count;
}

int SqliteCatalogue::song_nodes(const SongId *ids, size_t count, NodeSink &nodes) {
    return guarded([&](Database &database) {
        SourceBrowser browser(database, lists_, 0);
        nodes.expect(count);
        for (size_t i = 0; i < count; ++i) {
            Node node = song_node(browser, ids[i]);
            node.type = VANTRO_NODE_SONG;
            if (!nodes.take(row_of(node))) {
                break;
            }
        }
        return 0;
    });
}

int SqliteCatalogue::song(SongId id, Node &node, SongMetadata &metadata) {
    return guarded([&](Database &database) {
        SourceBrowser browser(database, lists_, 0);
        node = song_node(browser, id);
        return !node.id.empty() && read_metadata(database, artwork_, id, metadata) ? 0 : ENOENT;
    });
}

int SqliteCatalogue::song_files(const std::vector<SongId> &ids, std::vector<LocatedSong> &files) {
    return guarded([&](Database &database) {
        files.clear();
        files.reserve(ids.size());
        for (const SongId id : ids) {
            files.push_back(file_of(database, id));
        }
        return 0;
    });
}

int SqliteCatalogue::find_songs(const std::vector<SongName> &names,
                                std::vector<QueuedSong> &songs) {
    return guarded([&](Database &database) {
        SongFinder finder(database);
        for (const MusicPointer &each : directories_.all()) {
            finder.add({each->id, uid_of(each->key), each->path});
        }
        songs.clear();
        songs.reserve(names.size());
        for (const SongName &name : names) {
            songs.push_back(finder.find(name));
        }
        return 0;
    });
}

// The place of a song's file: its source, null if the song is gone, and its path below the source.
std::optional<Error> SqliteCatalogue::locate(SongId id, MusicPointer &source, std::string &path) {
    return attempt([&](Database &database) {
        SourceBrowser browser(database, lists_, 0);
        path = path_of(database, id);
        source = path.empty() ? nullptr : directory(song_node(browser, id).source);
        return 0;
    });
}

// A lack of memory or descriptors does not mean that the file is bad: the track plays on.
int32_t SqliteCatalogue::check(SongId id) {
    try {
        std::string path;
        MusicPointer source;
        if (const std::optional<Error> error = locate(id, source, path)) {
            return error->is_want() ? 0 : VANTRO_ERROR_UNREADABLE;
        }
        // No lock or transaction is held: the disk may be slow.
        return source ? check_song(source->path, path) : VANTRO_ERROR_GONE;
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

int SqliteCatalogue::open(SongId id) {
    try {
        std::string path;
        MusicPointer source;
        if (const std::optional<Error> error = locate(id, source, path)) {
            errno = error->is_damage() ? EIO : error->code();
            return -1;
        }
        if (!source) {
            errno = ENOENT;
            return -1;
        }
        return MusicRoot(source->path).open_file(path);
    } catch (const Error &error) {
        errno = error.code();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
    return -1;
}

std::optional<SongPart> SqliteCatalogue::part(SongId id) {
    SongPart part;
    const std::optional<Error> error = attempt([&](Database &database) {
        part = part_of(database, id);
        return 0;
    });
    return error ? std::nullopt : std::optional(std::move(part));
}

} // namespace vantro::service::catalogue
