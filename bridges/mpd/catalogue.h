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

// A URI is the directory of the source and the path below it, as in "music/Red/1.flac". If the
// catalogue does not state a song's path, its URI is "node:SOURCE:ID".
class Catalogue {
  public:
    struct Source {
        int32_t id = 0;
        int32_t status = 0;
        std::string directory; // The beginning of the source's URIs.
    };

    // The object that a URI names.
    struct Place {
        enum class Kind { root, folder, song };
        Kind kind = Kind::root;
        NodeKey key;
        std::string uri; // In the form for clients.
        SongPtr song;    // Of a song.
    };

    // Drops the cached state if the catalogue has changed since.
    void be_at(uint64_t version);

    // The sources that have songs of their own. This function and the following ones query the
    // player. @throws Ack.
    const std::vector<Source> &sources(Player &player);
    // Ids of sources that have playlists; those of saved playlists come first.
    std::vector<int32_t> playlist_sources(Player &player);
    SongPtr song(Player &player, const NodeKey &key);
    // The same for an entry of a list: NULL if the song has left the catalogue since.
    SongPtr song_if_there(Player &player, const NodeKey &key);
    // The same for an entry of the queue. A song that has left the catalogue keeps its place there,
    // with a URI that says that the song is gone.
    SongPtr queued_song(Player &player, const NodeKey &key);
    // The path of the source's directory, with a slash at the end; empty if it is not known.
    const std::string &path_of_source(Player &player, int32_t source);
    Place find(Player &player, std::string_view uri);

    WholeCatalogue &whole() { return whole_; }

  private:
    struct Root {
        int32_t source;
        std::string path; // Of the source's directory, with a slash at the end; empty: unknown.
    };

    std::string uri_of(Player &player, const NodeKey &key, const std::string &path);
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
    std::unordered_map<std::string, NodeKey> folders_; // By their URIs; incomplete.
};

} // namespace vantro::mpd

#endif
