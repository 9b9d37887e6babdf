// The service's catalogue as the protocol shows it: songs and directories by their URIs.
#ifndef VANTRO_BRIDGES_MPD_CATALOGUE_H
#define VANTRO_BRIDGES_MPD_CATALOGUE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <vantro/vantro.hpp>

#include "bridges/mpd/song.h"
#include "bridges/mpd/song_cache.h"
#include "bridges/mpd/whole_catalogue.h"

namespace vantro::mpd {

// Ids of menus that every source has.
constexpr const char *folders_menu = "folders";
constexpr const char *songs_menu = "songs";
constexpr const char *playlists_menu = "playlists";

// A URI is the directory of the source and the path below it, as in "music/Red/1.flac". A song
// whose path the catalogue does not tell is "node:SOURCE:ID".
class Catalogue {
  public:
    struct Source {
        int32_t id = 0;
        int32_t status = 0;
        std::string directory; // What URIs begin with.
    };

    // What a URI names.
    struct Place {
        enum class Kind { root, folder, song };
        Kind kind = Kind::root;
        NodeKey key;
        std::string uri; // As it is shown.
        SongPtr song;    // Of a song.
    };

    // Forgets what an earlier state of the catalogue was, if it has changed.
    void be_at(uint64_t version);

    // All of these ask the player. @throws Ack.
    // Those that have songs of their own.
    const std::vector<Source> &sources(Player &player);
    // Ids of sources that have playlists, those that were saved first.
    std::vector<int32_t> playlist_sources(Player &player);
    SongPtr song(Player &player, const NodeKey &key);
    Place find(Player &player, std::string_view uri);

    WholeCatalogue &whole() { return whole_; }

  private:
    struct Root {
        int32_t source;
        std::string path; // Of the source's directory, with a slash at the end; empty: not known.
    };

    std::string uri_of(Player &player, const NodeKey &key, const std::string &path);
    const std::string &root_path(Player &player, int32_t source);
    Place find_below(Player &player, const Source &source, std::string_view path);
    std::optional<NodeKey> find_folder_in(Player &player, const NodeKey &folder,
                                          const std::string &uri);
    SongPtr find_song(Player &player, const NodeKey &folder, const std::string &uri);
    std::string directory_of(int32_t source);

    uint64_t version_ = 0;
    std::vector<Source> sources_;
    std::vector<int32_t> saved_; // Sources of saved playlists.
    std::vector<Root> roots_;
    SongCache songs_;
    WholeCatalogue whole_;
    std::unordered_map<std::string, NodeKey> folders_; // By their URIs; not all of them.
};

} // namespace vantro::mpd

#endif
