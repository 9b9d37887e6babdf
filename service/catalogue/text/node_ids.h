// The ids of nodes, which are digests of paths and names.
#ifndef VANTRO_SERVICE_CATALOGUE_TEXT_NODE_IDS_H
#define VANTRO_SERVICE_CATALOGUE_TEXT_NODE_IDS_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace vantro::service::catalogue {

// Kinds of nodes, in the catalogue's file and as the first letter of their ids.
enum Kind : char {
    kind_none = 0, // not stored
    kind_artist = 'a',
    kind_album = 'b',
    kind_folder = 'f',
    kind_genre = 'g',
    kind_playlist = 'p',
    kind_song = 's',
    kind_year = 'y', // its key is the year itself
    // Never shown. Nodes of these kinds hold songs without artist or album, so that every song is
    // in an album of an artist.
    kind_no_artist = 'A',
    kind_no_album = 'B'
};

// 64 bits of SHA-256 over `kind`, `salt` and `identity`.
int64_t key_of(Kind kind, std::string_view identity, int salt = 0);

// The id of a node. It uses no heap memory, since long lists need many ids.
class NodeId {
  public:
    NodeId(Kind kind, int64_t key);
    std::string_view text() const { return {text_, size_}; }

  private:
    char text_[24];
    size_t size_;
};

struct NodeRef {
    Kind kind = kind_none;
    int64_t key = 0;
};
// Nothing if the text is not a NodeId.
std::optional<NodeRef> parse_node_id(std::string_view id);

} // namespace vantro::service::catalogue

#endif
