#include "service/playlists/playlist_catalogue.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include <vantro/catalogue.h>
#include <vantro/platform/log.h>

#include "service/catalogue/query/metadata.h"
#include "service/catalogue/query/source_browser.h"
#include "service/catalogue/text/node_ids.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::playlists {

namespace {

using catalogue::Node;
using catalogue::NodeRow;
using catalogue::QueuedSong;
using catalogue::SongId;

constexpr std::string_view source_name = "Playlists";
// Browsing this id returns the same as the top: other sources have their playlists under it.
constexpr std::string_view menu = "playlists";

// Lines that are logged at most about files that cannot be used; a folder may be full of them.
constexpr size_t said_max = 100;

bool is_top(std::string_view node) {
    return node == std::string_view(VANTRO_NODE_ROOT) || node == menu;
}

std::string node_of(std::string_view name) {
    return std::string(catalogue::NodeId(catalogue::kind_playlist,
                                         catalogue::key_of(catalogue::kind_playlist, name))
                           .text());
}

// Gives entries that were not found the names that the playlist states.
class Named : public catalogue::NodeSink {
  public:
    Named(catalogue::NodeSink &nodes, const Entry *first) : nodes_(nodes), next_(first) {}
    void expect(size_t count) override { nodes_.expect(count); }
    bool take(const NodeRow &node) override {
        const Entry &entry = *next_++;
        if (!node.id.empty()) {
            return nodes_.take(node);
        }
        const std::string name = catalogue::clean_text(
            entry.title.empty() ? entry.song.entry : entry.title, catalogue::tag_text_max);
        NodeRow named = node;
        named.name = name;
        return nodes_.take(named);
    }

  private:
    catalogue::NodeSink &nodes_;
    const Entry *next_;
};

} // namespace

// The result word for a client; an error that the client did not cause is logged once.
int PlaylistCatalogue::note(const Error &error) {
    const int code = error.code();
    if (code == EEXIST || code == ENOENT || code == EDQUOT) {
        return code;
    }
    const std::string text = log_text(error);
    {
        const MutexLock guard(mutex_);
        if (said_.size() < said_max && said_.insert(text).second) {
            log_(LOG_SEVERITY_WARNING, "saved playlists: " + text);
        }
    }
    const bool plain = code == ENOSPC || code == EACCES || code == EROFS || code == EMSGSIZE;
    return plain ? code : result_word(error);
}

std::vector<catalogue::Source> PlaylistCatalogue::sources() {
    std::vector<catalogue::Source> all = store_.sources();
    const Result<std::vector<PlaylistFile>> files = folder_.list();
    if (files && (*files).empty()) {
        return all;
    }
    catalogue::Source own;
    own.id = source_id;
    own.uid = catalogue::uid_of(menu); // of no directory
    own.name = source_name;
    own.view_name = source_name;
    own.type = VANTRO_SOURCE_PLAYLISTS;
    own.status = VANTRO_SOURCE_READY;
    own.capabilities = VANTRO_SOURCE_CAN_BROWSE | VANTRO_SOURCE_CAN_METADATA |
                       VANTRO_SOURCE_CAN_EXTENDED_METADATA | VANTRO_SOURCE_CAN_TRKSESSION |
                       VANTRO_SOURCE_HAS_PLAYLISTS;
    all.push_back(std::move(own));
    return all;
}

int PlaylistCatalogue::load(const std::string &name, PlaylistPointer &playlist) {
    {
        const std::optional<Stamp> now = folder_.look(name);
        const MutexLock guard(mutex_);
        if (last_ && last_->name == name && last_->stamp == now) {
            playlist = last_;
            return 0;
        }
    }
    auto read = std::make_shared<Playlist>();
    read->name = name;
    Result<std::string> text = folder_.read(name, read->stamp);
    if (!text) {
        return note(text.error());
    }
    read->text = std::move(*text);
    read->entries = read_playlist(read->text, entries_max);
    playlist = std::move(read);
    const MutexLock guard(mutex_);
    last_ = playlist;
    return 0;
}

// 0 for a file that cannot be read: a request for its entries returns the error.
int32_t PlaylistCatalogue::count_entries(const PlaylistFile &file) {
    {
        const MutexLock guard(mutex_);
        const auto known = counts_.find(file.name);
        if (known != counts_.end() && known->second.stamp == file.stamp) {
            return known->second.entries;
        }
    }
    PlaylistPointer playlist;
    if (load(file.name, playlist) != 0) {
        return 0;
    }
    const auto count = static_cast<int32_t>(playlist->entries.size());
    const MutexLock guard(mutex_);
    if (counts_.size() >= 2 * playlists_max) {
        counts_.clear(); // many of the files are gone
    }
    counts_[file.name] = {playlist->stamp, count};
    return count;
}

int PlaylistCatalogue::list(std::vector<Node> &nodes) {
    const Result<std::vector<PlaylistFile>> files = folder_.list();
    if (!files) {
        return note(files.error());
    }
    for (const PlaylistFile &file : *files) {
        nodes.push_back({node_of(file.name), file.name, VANTRO_NODE_PLAYLIST, count_entries(file),
                         source_id, VANTRO_SOURCE_PLAYLISTS});
    }
    return 0;
}

// The name of the playlist with this id. Returns 0, ENOENT, or the result word if the folder cannot
// be read.
int PlaylistCatalogue::find(std::string_view node, std::string &name) {
    const Result<std::vector<PlaylistFile>> files = folder_.list();
    if (!files) {
        return note(files.error());
    }
    for (const PlaylistFile &file : *files) {
        if (node_of(file.name) == node) {
            name = file.name;
            return 0;
        }
    }
    return ENOENT;
}

int PlaylistCatalogue::give_entries(const std::string &name, catalogue::Range range,
                                    catalogue::NodeSink &nodes) {
    PlaylistPointer playlist;
    if (const int result = load(name, playlist); result != 0) {
        return result;
    }
    const auto [first, last] = catalogue::bounds(range, playlist->entries.size());
    std::vector<catalogue::SongName> wanted;
    for (size_t i = first; i < last; ++i) {
        wanted.push_back(playlist->entries[i].song);
    }
    std::vector<QueuedSong> songs;
    if (const int result = store_.find_songs(wanted, songs); result != 0) {
        return result;
    }
    std::vector<SongId> ids(songs.size());
    std::transform(songs.begin(), songs.end(), ids.begin(),
                   [](const QueuedSong &song) { return song.id; });
    Named named(nodes, playlist->entries.data() + first);
    return store_.song_nodes(ids.data(), ids.size(), named);
}

int PlaylistCatalogue::browse(int32_t source, std::string_view node, catalogue::Range range,
                              catalogue::NodeSink &nodes) {
    if (source != source_id) {
        return store_.browse(source, node, range, nodes);
    }
    if (!is_top(node)) {
        std::string name;
        const int result = find(node, name);
        return result == 0 ? give_entries(name, range, nodes) : result;
    }
    std::vector<Node> listed;
    if (const int result = list(listed); result != 0) {
        return result;
    }
    const auto [first, last] = catalogue::bounds(range, listed.size());
    nodes.expect(last - first);
    for (size_t i = first; i < last && nodes.take(catalogue::row_of(listed[i])); ++i) {
    }
    return 0;
}

int PlaylistCatalogue::search(int32_t source, std::string_view filter, std::string_view term,
                              catalogue::Range range, catalogue::NodeSink &nodes) {
    return source == source_id ? 0 : store_.search(source, filter, term, range, nodes);
}

int PlaylistCatalogue::metadata(int32_t source, std::string_view node,
                                std::optional<catalogue::SongMetadata> &metadata) {
    if (source != source_id) {
        return store_.metadata(source, node, metadata);
    }
    catalogue::SongMetadata found;
    if (is_top(node)) {
        found.title = source_name;
    } else if (const int result = find(node, found.title); result != 0) {
        return result;
    }
    metadata = std::move(found);
    return 0;
}

// The store does not know playlists, nor entries that were not found; all of these have a name.
int PlaylistCatalogue::describe(const std::vector<Node> &nodes,
                                std::vector<catalogue::SongMetadata> &metadata) {
    if (const int result = store_.describe(nodes, metadata); result != 0) {
        return result;
    }
    for (size_t i = 0; i < nodes.size(); ++i) {
        if (nodes[i].source == source_id || nodes[i].id.empty()) {
            metadata[i].title = nodes[i].name;
        }
    }
    return 0;
}

int PlaylistCatalogue::extended_metadata(int32_t source, std::string_view node,
                                         const std::vector<std::string_view> &keys,
                                         std::vector<std::string> &values) {
    if (source != source_id) {
        return store_.extended_metadata(source, node, keys, values);
    }
    std::optional<catalogue::SongMetadata> found;
    const int result = metadata(source, node, found);
    if (result == 0) {
        values = catalogue::extended_of(*found, keys);
    }
    return result;
}

// A file that is deleted at this moment adds nothing.
int PlaylistCatalogue::add_songs(const std::string &name, std::vector<QueuedSong> &songs) {
    PlaylistPointer playlist;
    if (const int result = load(name, playlist); result != 0) {
        return result;
    }
    std::vector<catalogue::SongName> wanted;
    wanted.reserve(playlist->entries.size());
    for (const Entry &entry : playlist->entries) {
        wanted.push_back(entry.song);
    }
    std::vector<QueuedSong> found;
    if (const int result = store_.find_songs(wanted, found); result != 0) {
        return result;
    }
    std::copy_if(found.begin(), found.end(), std::back_inserter(songs),
                 [](const QueuedSong &song) { return song.id != 0; });
    return 0;
}

int PlaylistCatalogue::songs(int32_t source, std::string_view node,
                             std::vector<QueuedSong> &songs) {
    if (source != source_id) {
        return store_.songs(source, node, songs);
    }
    if (!is_top(node)) {
        std::string name;
        const int result = find(node, name);
        return result == 0 ? add_songs(name, songs) : result;
    }
    const Result<std::vector<PlaylistFile>> files = folder_.list();
    if (!files) {
        return note(files.error());
    }
    for (const PlaylistFile &file : *files) {
        if (const int result = add_songs(file.name, songs); result != 0 && result != ENOENT) {
            return result;
        }
        if (songs.size() > VANTRO_TRKSESSION_SONGS_MAX) {
            return EMSGSIZE;
        }
    }
    return 0;
}

int PlaylistCatalogue::save_playlist(std::string_view name, const std::vector<SongId> &songs,
                                     bool replace, int32_t &kept) {
    if (!is_playlist_name(name)) {
        return EINVAL;
    }
    if (songs.size() > entries_max) {
        return EMSGSIZE;
    }
    std::vector<catalogue::LocatedSong> located;
    if (const int result = store_.song_files(songs, located); result != 0) {
        return result;
    }
    std::erase_if(located, [](const catalogue::LocatedSong &song) { return song.uid.empty(); });
    if (located.empty()) {
        return ENODATA;
    }
    const std::string text = write_playlist(located);
    if (static_cast<int64_t>(text.size()) > file_bytes_max) {
        return EMSGSIZE;
    }
    if (const std::optional<Error> error = folder_.write(std::string(name), text, replace)) {
        return note(*error);
    }
    kept = static_cast<int32_t>(located.size());
    changed_(source_id);
    return 0;
}

int PlaylistCatalogue::delete_playlist(std::string_view name) {
    if (!is_playlist_name(name)) {
        return EINVAL;
    }
    if (const std::optional<Error> error = folder_.remove(std::string(name))) {
        return note(*error);
    }
    changed_(source_id);
    return 0;
}

void PlaylistCatalogue::rescan() {
    store_.rescan();
    changed_(source_id);
}

// The folder of the playlists is read at every request, so only the clients must read it again.
int PlaylistCatalogue::rescan_node(int32_t source, std::string_view node) {
    if (source != source_id) {
        return store_.rescan_node(source, node);
    }
    std::string name;
    const int result = is_top(node) ? 0 : find(node, name);
    if (result == 0) {
        changed_(source_id);
    }
    return result;
}

} // namespace vantro::service::playlists
