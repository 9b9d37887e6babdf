#include "bridges/mpd/whole_catalogue.h"

#include <utility>

#include <vantro/catalogue.h>

#include "bridges/mpd/catalogue.h"
#include "bridges/mpd/song_cache.h"

namespace vantro::mpd {
namespace {

constexpr int64_t songs_max = 50'000;
constexpr size_t bytes_max = 32 * 1024 * 1024;

// Folders lie no deeper in the service.
constexpr size_t folders_max = 300;

int64_t count_songs(Player &player, Catalogue &catalogue) {
    int64_t songs = 0;
    for (const Catalogue::Source &source : catalogue.sources(player)) {
        NodeWalk walk = NodeWalk::below({source.id, VANTRO_NODE_ROOT}, false);
        while (const MediaNode *const node = walk.next(player).node) {
            songs += text(node->id) == songs_menu ? node->count : 0;
        }
    }
    return songs;
}

} // namespace

void WholeCatalogue::begin(Player &player, Catalogue &catalogue) {
    clear(); // removes the rest of an attempt that failed for lack of memory
    if (count_songs(player, catalogue) > songs_max) {
        give_up();
        return;
    }
    for (const Catalogue::Source &source : catalogue.sources(player)) {
        folders_.insert(folders_.begin(),
                        {source.id, NodeWalk::below({source.id, folders_menu}, false)});
    }
    state_ = State::reading;
}

WholeCatalogue::State WholeCatalogue::read_on(Player &player, Catalogue &catalogue) {
    if (state_ == State::unread) {
        begin(player, catalogue);
    }
    if (state_ != State::reading) {
        return state_;
    }
    if (folders_.empty()) {
        songs_ = std::make_shared<const std::vector<SongPtr>>(std::exchange(read_, {}));
        state_ = State::complete;
        return state_;
    }
    auto &[source, walk] = folders_.back();
    const MediaNode *const node = walk.next(player).node;
    if (!node) {
        folders_.pop_back();
        return state_;
    }
    NodeKey key{source, std::string(text(node->id))};
    if (node->type == VANTRO_NODE_FOLDER && folders_.size() < folders_max) {
        folders_.push_back({key.source, NodeWalk::below(key, false)});
    } else if (node->type == VANTRO_NODE_SONG) {
        if (const SongPtr song = catalogue.song_if_there(player, key)) {
            keep(song);
        }
    }
    return state_;
}

void WholeCatalogue::keep(const SongPtr &song) {
    bytes_ += SongCache::size_of(*song);
    read_.push_back(song);
    if (bytes_ > bytes_max) {
        give_up();
    }
}

void WholeCatalogue::give_up() {
    clear();
    state_ = State::too_large;
}

} // namespace vantro::mpd
