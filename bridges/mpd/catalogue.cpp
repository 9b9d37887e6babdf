#include "bridges/mpd/catalogue.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <utility>

#include <fmt/format.h>

#include <vantro/catalogue.h>

#include "bridges/mpd/node_walk.h"
#include "bridges/mpd/service_call.h"
#include "bridges/mpd/text.h"

namespace vantro::mpd {
namespace {

constexpr std::string_view node_scheme = "node:";

// Folders whose URIs are cached.
constexpr size_t folders_max = 4096;

// Folders lie no deeper in the service.
constexpr int depth_max = 256;

// Keys that are not tags, in the order of `Extra`.
enum Extra { path, duration, modified, bit_rate, sample_rate, channels, codec, artwork, start };
constexpr const char *extra_keys[] = {
    VANTRO_KEY_PATH,     VANTRO_KEY_DURATION,    VANTRO_KEY_MODIFIED,
    VANTRO_KEY_BIT_RATE, VANTRO_KEY_SAMPLE_RATE, VANTRO_KEY_CHANNELS,
    VANTRO_KEY_CODEC,    VANTRO_KEY_ARTWORK,     VANTRO_KEY_START};
constexpr size_t extra_count = std::size(extra_keys);

template <typename Number>
Number number_of(const Value &value) {
    Number number = 0;
    const std::string_view digits = text(value.get());
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

std::string path_of(Player &player, const NodeKey &key) {
    const auto values = checked(
        player.values(key.source, key.id.c_str(), {static_cast<const char *>(VANTRO_KEY_PATH)}));
    return std::string(text(values[0].get()));
}

[[noreturn]] void refuse_uri(std::string_view uri) {
    throw Ack(AckCode::no_exist, fmt::format("no such song or directory: \"{}\"", uri));
}

} // namespace

void Catalogue::be_at(uint64_t version) {
    if (version != version_) {
        version_ = version;
        sources_.clear();
        saved_.clear();
        songs_.clear();
        whole_.clear();
        folders_.clear();
    }
}

const std::vector<Catalogue::Source> &Catalogue::sources(Player &player) {
    if (!sources_.empty()) {
        return sources_;
    }
    const List<MediaSource> list = checked(player.sources());
    saved_.clear();
    for (const MediaSource &each : list) {
        if (each.type == VANTRO_SOURCE_PLAYLISTS) {
            saved_.push_back(each.id);
            continue;
        }
        std::string directory = one_line(text(each.name));
        std::replace(directory.begin(), directory.end(), '/', '_'); // one component of a path
        const bool taken = std::any_of(sources_.begin(), sources_.end(), [&](const Source &other) {
            return other.directory == directory;
        });
        if (taken || directory.empty() || directory.starts_with(node_scheme)) {
            directory += fmt::format("~{}", each.id);
        }
        sources_.push_back({each.id, each.status, std::move(directory)});
    }
    return sources_;
}

std::vector<int32_t> Catalogue::playlist_sources(Player &player) {
    const std::vector<Source> &directories = sources(player);
    std::vector<int32_t> ids = saved_;
    for (const Source &each : directories) {
        ids.push_back(each.id);
    }
    return ids;
}

std::string Catalogue::directory_of(int32_t source) {
    for (const Source &each : sources_) {
        if (each.id == source) {
            return each.directory;
        }
    }
    return "";
}

// The catalogue states the paths of songs, but not of directories. So the path of a source is the
// path of one of its songs, without the folders that contain the song.
const std::string &Catalogue::path_of_source(Player &player, int32_t source) {
    auto known = std::find_if(roots_.begin(), roots_.end(),
                              [source](const Root &each) { return each.source == source; });
    if (known != roots_.end() && !known->path.empty()) {
        return known->path;
    }
    if (known == roots_.end()) {
        known = roots_.insert(roots_.end(), {source, ""});
    }
    NodeKey folder{source, folders_menu};
    for (int depth = 0; depth < depth_max; ++depth) {
        NodeWalk walk = NodeWalk::below(folder, false);
        const MediaNode *const node = walk.next(player).node;
        if (!node) {
            break;
        }
        folder.id = text(node->id);
        if (node->type == VANTRO_NODE_FOLDER) {
            continue;
        }
        std::string path = path_of(player, folder);
        for (int up = 0; up <= depth && !path.empty(); ++up) {
            const size_t slash = path.rfind('/');
            path.resize(slash == std::string::npos ? 0 : slash);
        }
        known->path = path.empty() ? "" : path + '/';
        break;
    }
    return known->path;
}

std::string Catalogue::uri_of(Player &player, const NodeKey &key, const std::string &path) {
    if (!path.empty()) {
        sources(player);
        const std::string &root = path_of_source(player, key.source);
        const std::string directory = directory_of(key.source);
        if (!root.empty() && !directory.empty() && path.starts_with(root)) {
            return directory + '/' + one_line(std::string_view(path).substr(root.size()));
        }
    }
    return fmt::format("{}{}:{}", node_scheme, key.source, key.id);
}

SongPtr Catalogue::song(Player &player, const NodeKey &key) {
    if (SongPtr found = song_if_there(player, key)) {
        return found;
    }
    refuse_uri(fmt::format("{}{}:{}", node_scheme, key.source, key.id));
}

SongPtr Catalogue::queued_song(Player &player, const NodeKey &key) {
    SongPtr found = key.id.empty() ? nullptr : song_if_there(player, key);
    if (!found) {
        auto gone = std::make_shared<Song>();
        gone->key = key;
        gone->uri = std::string(node_scheme) + "gone";
        found = std::move(gone);
    }
    return found;
}

SongPtr Catalogue::song_if_there(Player &player, const NodeKey &key) {
    if (SongPtr known = songs_.find(key)) {
        return known;
    }
    auto song = std::make_shared<Song>();
    song->key = key;
    const char *keys[tag_count + extra_count];
    for (size_t i = 0; i < tag_count; ++i) {
        keys[i] = tag_names[i].key;
    }
    std::copy(std::begin(extra_keys), std::end(extra_keys), keys + tag_count);
    auto asked = player.values(key.source, key.id.c_str(), keys);
    if (refused(asked, ENOENT)) {
        return nullptr;
    }
    const auto values = checked(std::move(asked));
    for (size_t i = 0; i < tag_count; ++i) {
        song->tags[i] = one_line(text(values[i].get()));
    }
    const Value *const extra = values.data() + tag_count;
    song->duration_ms = number_of<int32_t>(extra[duration]);
    song->modified = number_of<int64_t>(extra[modified]);
    song->bit_rate = text(extra[bit_rate].get());
    song->sample_rate = text(extra[sample_rate].get());
    song->channels = text(extra[channels].get());
    song->codec = text(extra[codec].get());
    song->artwork = text(extra[artwork].get());
    // A track of a cue sheet shares its file's path with others.
    const bool alone = text(extra[start].get()).empty();
    song->uri = uri_of(player, key, alone ? std::string(text(extra[path].get())) : "");
    songs_.add(song);
    return song;
}

SongPtr Catalogue::find_song(Player &player, const NodeKey &folder, const std::string &uri) {
    if (SongPtr known = songs_.find_uri(uri)) {
        return known;
    }
    NodeWalk walk = NodeWalk::below(folder, false);
    while (const MediaNode *const node = walk.next(player).node) {
        if (node->type != VANTRO_NODE_SONG) {
            continue;
        }
        SongPtr found = song_if_there(player, {folder.source, std::string(text(node->id))});
        if (found && found->uri == uri) {
            return found;
        }
    }
    return nullptr;
}

std::optional<NodeKey> Catalogue::find_folder_in(Player &player, const NodeKey &folder,
                                                 const std::string &uri) {
    if (const auto known = folders_.find(uri); known != folders_.end()) {
        return known->second;
    }
    const std::string_view name = std::string_view(uri).substr(uri.rfind('/') + 1);
    NodeWalk walk = NodeWalk::below(folder, false);
    const MediaNode *node = walk.next(player).node;
    while (node && node->type == VANTRO_NODE_FOLDER) { // folders come before the songs
        if (one_line(text(node->name)) == name) {
            if (folders_.size() == folders_max) {
                folders_.clear();
            }
            return folders_[uri] = {folder.source, std::string(text(node->id))};
        }
        node = walk.next(player).node;
    }
    return std::nullopt;
}

Catalogue::Place Catalogue::find_below(Player &player, const Source &source,
                                       std::string_view path) {
    Place place{Place::Kind::folder, {source.id, folders_menu}, source.directory, nullptr};
    if (SongPtr known = songs_.find_uri(fmt::format("{}/{}", source.directory, path))) {
        return {Place::Kind::song, known->key, known->uri, known};
    }
    while (!path.empty()) {
        const size_t slash = path.find('/');
        const std::string uri = fmt::format("{}/{}", place.uri, path.substr(0, slash));
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
        std::optional<NodeKey> folder = find_folder_in(player, place.key, uri);
        if (!folder) {
            const SongPtr song = path.empty() ? find_song(player, place.key, uri) : nullptr;
            if (!song) {
                refuse_uri(uri);
            }
            return {Place::Kind::song, song->key, uri, song};
        }
        place.key = *std::move(folder);
        place.uri = uri;
    }
    return place;
}

Catalogue::Place Catalogue::find(Player &player, std::string_view uri) {
    if (uri.starts_with(node_scheme)) {
        std::string_view rest = uri.substr(node_scheme.size());
        NodeKey key;
        const auto [at, error] =
            std::from_chars(rest.data(), rest.data() + rest.size(), key.source);
        rest.remove_prefix(static_cast<size_t>(at - rest.data()));
        if (error != std::errc() || rest.size() < 2 || rest.front() != ':') {
            refuse_uri(uri);
        }
        key.id = rest.substr(1);
        const SongPtr found = song(player, key);
        return {Place::Kind::song, key, found->uri, found};
    }
    const std::string_view asked = uri;
    while (uri.starts_with('/')) {
        uri.remove_prefix(1);
    }
    while (uri.ends_with('/')) {
        uri.remove_suffix(1);
    }
    if (uri.empty()) {
        return {};
    }
    const size_t slash = uri.find('/');
    for (const Source &source : sources(player)) {
        if (source.directory == uri.substr(0, slash)) {
            return find_below(player, source,
                              slash == std::string_view::npos ? "" : uri.substr(slash + 1));
        }
    }
    refuse_uri(asked);
}

} // namespace vantro::mpd
