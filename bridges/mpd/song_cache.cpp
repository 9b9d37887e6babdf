#include "bridges/mpd/song_cache.h"

namespace vantro::mpd {
namespace {

std::string text_of(const NodeKey &key) {
    return std::to_string(key.source) + ':' + key.id;
}

} // namespace

size_t SongCache::size_of(const Song &song) {
    size_t size = sizeof song + 4 * song.uri.size() + 2 * song.key.id.size() + song.artwork.size();
    for (const std::string &value : song.tags) {
        size += value.size();
    }
    return size;
}

void SongCache::add(const SongPtr &song) {
    if (newer_.bytes > half_bytes) {
        older_ = std::exchange(newer_, {});
    }
    if (newer_.by_node.emplace(text_of(song->key), song).second) {
        newer_.by_uri.emplace(song->uri, song);
        newer_.bytes += size_of(*song);
    }
}

SongPtr SongCache::find(const NodeKey &key) {
    const std::string text = text_of(key);
    if (const auto found = newer_.by_node.find(text); found != newer_.by_node.end()) {
        return found->second;
    }
    const auto found = older_.by_node.find(text);
    if (found == older_.by_node.end()) {
        return nullptr;
    }
    SongPtr song = found->second;
    add(song);
    return song;
}

SongPtr SongCache::find_uri(const std::string &uri) {
    for (const Half *half : {&newer_, &older_}) {
        if (const auto found = half->by_uri.find(uri); found != half->by_uri.end()) {
            return found->second;
        }
    }
    return nullptr;
}

void SongCache::clear() {
    newer_ = {};
    older_ = {};
}

} // namespace vantro::mpd
