// A store's catalogue and, if there are saved playlists, a further source after its own: the
// playlists.
//
// The top of that source lists the playlists, whose entries are nodes of the other sources. An
// entry that cannot be found keeps its place, as a node without id.
#ifndef VANTRO_SERVICE_PLAYLISTS_PLAYLIST_CATALOGUE_H
#define VANTRO_SERVICE_PLAYLISTS_PLAYLIST_CATALOGUE_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "common/locks.h"
#include "service/catalogue/store.h"
#include "service/playlists/playlist_folder.h"
#include "service/playlists/playlist_text.h"

namespace vantro::service::playlists {

// The number of the source. The catalogue's file numbers its sources from 1 on, one for each
// directory that was ever used.
inline constexpr int32_t source_id = 1'000'000;

class PlaylistCatalogue : public catalogue::Catalogue {
  public:
    using Log = std::function<void(int severity, const std::string &line)>;

    // Borrows the store, which outlives this. `changed` is called when a playlist was saved or
    // deleted, and when the source must be read again; on the thread that caused it.
    PlaylistCatalogue(catalogue::Store &store, std::filesystem::path folder, Log log,
                      std::function<void(int32_t source)> changed)
        : store_(store), folder_(std::move(folder)), log_(std::move(log)),
          changed_(std::move(changed)) {}

    std::vector<catalogue::Source> sources() override;
    int browse(int32_t source, std::string_view node, catalogue::Range range,
               catalogue::NodeSink &nodes) override;
    int search(int32_t source, std::string_view filter, std::string_view term,
               catalogue::Range range, catalogue::NodeSink &nodes) override;
    int metadata(int32_t source, std::string_view node,
                 std::optional<catalogue::SongMetadata> &metadata) override;
    int describe(const std::vector<catalogue::Node> &nodes,
                 std::vector<catalogue::SongMetadata> &metadata) override;
    int extended_metadata(int32_t source, std::string_view node,
                          const std::vector<std::string_view> &keys,
                          std::vector<std::string> &values) override;
    int songs(int32_t source, std::string_view node,
              std::vector<catalogue::QueuedSong> &songs) override;
    int save_playlist(std::string_view name, const std::vector<catalogue::SongId> &songs,
                      bool replace, int32_t &kept) override;
    int delete_playlist(std::string_view name) override;
    void rescan() override;
    int rescan_node(int32_t source, std::string_view node) override;

    int all_songs(std::vector<catalogue::QueuedSong> &songs) override {
        return store_.all_songs(songs);
    }
    int song_nodes(const catalogue::SongId *ids, size_t count,
                   catalogue::NodeSink &nodes) override {
        return store_.song_nodes(ids, count, nodes);
    }
    int song(catalogue::SongId id, catalogue::Node &node,
             catalogue::SongMetadata &metadata) override {
        return store_.song(id, node, metadata);
    }
    int32_t check(catalogue::SongId id) override { return store_.check(id); }
    int open(catalogue::SongId id) override { return store_.open(id); }
    std::optional<catalogue::SongPart> part(catalogue::SongId id) override {
        return store_.part(id);
    }
    int32_t take_session_ids(int32_t count) override { return store_.take_session_ids(count); }

  private:
    // The contents of a playlist's file, and the positions of its entries.
    struct Playlist {
        std::string name;
        Stamp stamp;
        std::string text;
        std::vector<Entry> entries;
    };
    using PlaylistPointer = std::shared_ptr<const Playlist>;
    struct Counted {
        Stamp stamp;
        int32_t entries = 0;
    };

    int list(std::vector<catalogue::Node> &nodes);
    int find(std::string_view node, std::string &name);
    int load(const std::string &name, PlaylistPointer &playlist) EXCLUDES(mutex_);
    int32_t count_entries(const PlaylistFile &file) EXCLUDES(mutex_);
    int give_entries(const std::string &name, catalogue::Range range, catalogue::NodeSink &nodes);
    int add_songs(const std::string &name, std::vector<catalogue::QueuedSong> &songs);
    int note(const Error &error) EXCLUDES(mutex_);

    catalogue::Store &store_;
    PlaylistFolder folder_;
    const Log log_;
    const std::function<void(int32_t)> changed_;

    Mutex mutex_;                             // not held while a file is read or written
    PlaylistPointer last_ GUARDED_BY(mutex_); // a client that reads a long list sends many requests
    std::map<std::string, Counted> counts_ GUARDED_BY(mutex_);
    std::set<std::string> said_ GUARDED_BY(mutex_); // texts of errors that were logged
};

} // namespace vantro::service::playlists

#endif
