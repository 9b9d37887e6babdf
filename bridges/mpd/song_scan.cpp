#include "bridges/mpd/song_scan.h"

#include <algorithm>

#include <vantro/catalogue.h>

#include "bridges/mpd/ack.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {
namespace {

// Folders lie no deeper in the service.
constexpr size_t folders_max = 300;

// The catalogue finds songs by the words of these tags. A text that consists only of symbols may
// have no word.
std::optional<std::string> term_of(const Filter &filter) {
    for (const Tag tag : {Tag::title, Tag::album, Tag::artist, Tag::composer, Tag::genre}) {
        std::optional<std::string> value = filter.demanded(tag);
        const auto is_plain = [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        };
        if (value && std::any_of(value->begin(), value->end(), is_plain)) {
            return value;
        }
    }
    return std::nullopt;
}

// The object that a URI names, if there is one.
std::optional<Catalogue::Place> find_place(Player &player, Catalogue &catalogue,
                                           const std::string &uri) {
    try {
        return catalogue.find(player, uri);
    } catch (const Ack &ack) {
        if (ack.code() != AckCode::no_exist) {
            throw;
        }
        return std::nullopt;
    }
}

Song listed_song(const NodeKey &key, const Metadata &metadata) {
    Song song;
    song.key = key;
    song.tags[index_of(Tag::title)] = one_line(text(metadata.title));
    song.tags[index_of(Tag::artist)] = one_line(text(metadata.artist));
    song.tags[index_of(Tag::album)] = one_line(text(metadata.album));
    song.tags[index_of(Tag::genre)] = one_line(text(metadata.genre));
    song.duration_ms = metadata.duration;
    return song;
}

} // namespace

SongScan::SongScan(Filter filter, Filter::Knowledge needs, Order order)
    : filter_(std::move(filter)), needs_(needs), order_(order), term_(term_of(filter_)) {}

void SongScan::begin(Player &player, Catalogue &catalogue) {
    begun_ = true;
    std::optional<Catalogue::Place> folder;
    if (const std::optional<std::string> base = filter_.demanded_base(); base && !base->empty()) {
        Catalogue::Place place = catalogue.find(player, *base);
        if (place.kind == Catalogue::Place::Kind::folder) {
            folder = std::move(place);
        }
    }
    const WholeCatalogue::State whole = catalogue.whole().state();
    if (whole == WholeCatalogue::State::complete) {
        all_ = catalogue.whole().songs();
    } else if (folder && !term_) {
        enter(folder->key);
    } else if (!term_ && whole != WholeCatalogue::State::too_large) {
        reading_ = true;
    } else {
        begin_walks(player, catalogue);
    }
}

void SongScan::read_on(Player &player, Catalogue &catalogue) {
    switch (catalogue.whole().read_on(player, catalogue)) {
    case WholeCatalogue::State::complete:
        all_ = catalogue.whole().songs();
        reading_ = false;
        break;
    case WholeCatalogue::State::too_large:
        reading_ = false;
        begin_walks(player, catalogue);
        break;
    default:
        break;
    }
}

void SongScan::begin_walks(Player &player, Catalogue &catalogue) {
    for (const Catalogue::Source &source : catalogue.sources(player)) {
        const auto walk = [&] {
            if (term_) {
                return NodeWalk::found(source.id, *term_);
            }
            return NodeWalk::below(
                {source.id, order_ == Order::folders ? folders_menu : songs_menu}, true);
        };
        walks_.insert(walks_.begin(), {source.id, walk()});
    }
}

void SongScan::enter(const NodeKey &folder) {
    if (walks_.size() < folders_max) {
        walks_.emplace_back(folder.source, NodeWalk::below(folder, true));
    }
}

SongPtr SongScan::next(Player &player, Catalogue &catalogue) {
    if (!begun_) {
        if (const std::optional<std::string> uri = filter_.demanded_uri()) {
            begun_ = true;
            const auto place = find_place(player, catalogue, *uri);
            return place && place->song && filter_.matches(*place->song) ? place->song : nullptr;
        }
        begin(player, catalogue);
    }
    if (reading_) {
        read_on(player, catalogue);
        return nullptr;
    }
    if (all_) {
        if (at_ == all_->size()) {
            return nullptr;
        }
        const SongPtr &song = (*all_)[at_++];
        return filter_.matches(*song) ? song : nullptr;
    }
    return walk_on(player, catalogue);
}

SongPtr SongScan::walk_on(Player &player, Catalogue &catalogue) {
    if (walks_.empty()) {
        return nullptr;
    }
    auto &[source, walk] = walks_.back();
    const DescribedNode entry = walk.next(player);
    if (!entry.node) {
        walks_.pop_back();
        return nullptr;
    }
    const NodeKey key{source, std::string(text(entry.node->id))};
    if (entry.node->type == VANTRO_NODE_FOLDER) {
        enter(key);
    }
    if (entry.node->type != VANTRO_NODE_SONG) {
        return nullptr;
    }
    Song listed = listed_song(key, *entry.metadata);
    const Filter::Truth truth = filter_.judge(listed, Filter::Knowledge::listed);
    if (truth == Filter::Truth::no) {
        return nullptr;
    }
    if (truth == Filter::Truth::yes && needs_ == Filter::Knowledge::listed) {
        return std::make_shared<const Song>(std::move(listed));
    }
    SongPtr song = catalogue.song_if_there(player, key);
    return song && filter_.matches(*song) ? song : nullptr;
}

} // namespace vantro::mpd
