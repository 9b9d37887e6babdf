// A catalogue of a few nodes in memory, for the parts that only need something to read.
#ifndef VANTRO_TESTS_SUPPORT_MEMORY_CATALOGUE_H
#define VANTRO_TESTS_SUPPORT_MEMORY_CATALOGUE_H

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>

#include <vantro/catalogue.h>

#include "service/catalogue/catalogue.h"

namespace vantro::test {

// Source 1: the root has all songs, "few" the first three, "none" has nothing. Songs are "song1"...
class MemoryCatalogue : public service::catalogue::Catalogue {
  public:
    explicit MemoryCatalogue(const std::vector<int32_t> &durations_ms) {
        for (const int32_t duration : durations_ms) {
            list.push_back({static_cast<service::catalogue::SongId>(list.size()) + 1, 1, duration});
        }
    }

    std::vector<service::catalogue::Source> sources() override {
        return {{1, "u", "n", "v", 1, 2, 0x1F}};
    }
    int browse(int32_t source, std::string_view node, service::catalogue::Range range,
               service::catalogue::NodeSink &nodes) override {
        std::vector<service::catalogue::QueuedSong> found;
        if (const int result = songs(source, node, found); result != 0) {
            return result;
        }
        const size_t first = std::min<size_t>(std::max(range.offset, 0), found.size());
        const size_t left = found.size() - first;
        const int64_t wanted = range.count > 0 ? range.count : INT_MAX;
        for (size_t i = 0; i < left && static_cast<int64_t>(i) < wanted; ++i) {
            give(found[first + i].id, nodes);
        }
        return 0;
    }
    int search(int32_t source, std::string_view filter, std::string_view,
               service::catalogue::Range range, service::catalogue::NodeSink &nodes) override {
        return filter.empty() || filter == "title" ? browse(source, "", range, nodes) : EINVAL;
    }
    int metadata(int32_t source, std::string_view node,
                 std::optional<service::catalogue::SongMetadata> &metadata) override {
        std::vector<service::catalogue::QueuedSong> found;
        if (source == 1 && node == "song1") {
            metadata = metadata_of(1);
        }
        return metadata ? 0 : songs(source, node, found);
    }
    int describe(const std::vector<service::catalogue::Node> &nodes,
                 std::vector<service::catalogue::SongMetadata> &metadata) override {
        for (const service::catalogue::Node &node : nodes) {
            metadata.push_back(metadata_of(node.song));
        }
        return broken ? EIO : 0;
    }
    int extended_metadata(int32_t source, std::string_view node,
                          const std::vector<std::string_view> &keys,
                          std::vector<std::string> &values) override {
        std::optional<service::catalogue::SongMetadata> ignored;
        for (const std::string_view key : keys) {
            values.emplace_back(key == "title" ? "T" : "");
        }
        return metadata(source, node, ignored);
    }
    int songs(int32_t source, std::string_view node,
              std::vector<service::catalogue::QueuedSong> &songs) override {
        if (source != 1) {
            return ENOENT;
        }
        for (const service::catalogue::QueuedSong &song : list) {
            if (node == "song" + std::to_string(song.id)) {
                songs.push_back(song);
                return 0;
            }
        }
        if (!node.empty() && node != "few" && node != "none") {
            return ENOENT;
        }
        const size_t count = node.empty() ? list.size() : node == "few" ? 3 : 0;
        songs.insert(songs.end(), list.begin(),
                     list.begin() + std::min<ptrdiff_t>(count, list.size()));
        return 0;
    }
    int all_songs(std::vector<service::catalogue::QueuedSong> &songs) override {
        songs = list;
        return broken ? EIO : 0;
    }
    int song_nodes(const service::catalogue::SongId *ids, size_t count,
                   service::catalogue::NodeSink &nodes) override {
        std::for_each(ids, ids + count, [&](service::catalogue::SongId id) { give(id, nodes); });
        return broken ? EIO : 0;
    }
    int song(service::catalogue::SongId id, service::catalogue::Node &node,
             service::catalogue::SongMetadata &metadata) override {
        node = node_of(id);
        metadata = metadata_of(id);
        return broken ? EIO : id != gone ? 0 : ENOENT;
    }
    int32_t check(service::catalogue::SongId id) override {
        return id == gone ? VANTRO_ERROR_GONE : 0;
    }
    int open(service::catalogue::SongId) override {
        errno = ENOENT;
        return -1;
    }
    void rescan() override {}
    int rescan_node(int32_t source, std::string_view node) override {
        return source == 1 && node.empty() ? 0 : ENOENT;
    }
    int32_t take_session_ids(int32_t count) override {
        return ids_run_out ? 0 : next_id_.fetch_add(count);
    }

    std::vector<service::catalogue::QueuedSong> list;
    service::catalogue::SongId gone = 0;
    bool ids_run_out = false;
    bool broken = false;

  private:
    static service::catalogue::Node node_of(service::catalogue::SongId id) {
        return {"song" + std::to_string(id), "T", VANTRO_NODE_SONG, 0, 1, 1, id};
    }
    static void give(service::catalogue::SongId id, service::catalogue::NodeSink &nodes) {
        const service::catalogue::Node node = node_of(id);
        nodes.take({node.id, node.name, node.type, node.count, node.source, node.source_type, id});
    }
    static service::catalogue::SongMetadata metadata_of(service::catalogue::SongId id) {
        service::catalogue::SongMetadata metadata;
        metadata.title = "T";
        metadata.track = static_cast<int32_t>(id);
        return metadata;
    }
    std::atomic<int32_t> next_id_{1};
};

} // namespace vantro::test

#endif
