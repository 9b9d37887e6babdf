// Names: how they are ordered, when two are the same, and the ids that are made of them.
#ifndef VANTRO_SERVICE_CATALOGUE_TEXT_NAMES_H
#define VANTRO_SERVICE_CATALOGUE_TEXT_NAMES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vantro::service::catalogue {

// Bytes whose plain order is the order of names that people expect: numbers by their value, case
// and accents only where nothing else differs, every script. At most sort_key_max bytes.
std::string sort_key(std::string_view name);
inline constexpr size_t sort_key_max = 1024;

// The same text for names that are the same to a person: without regard to case, to how accents
// are composed and to blanks around it.
std::string folded(std::string_view name);

// Loads the tables that sort_key() and folded() need, so that no later call fails for want of them.
// Throws where they cannot be had. Both functions throw std::bad_alloc for want of memory.
void set_up_names();

// 64 bits of SHA-256 over `kind`, `salt` and `identity`.
int64_t key_of(char kind, std::string_view identity, int salt = 0);

// SHA-256 in hexadecimal.
std::string digest(std::string_view bytes);

// What nodes are, in the catalogue's file and as the first letter of their ids.
enum Kind : char {
    kind_artist = 'a',
    kind_album = 'b',
    kind_folder = 'f',
    kind_genre = 'g',
    kind_playlist = 'p',
    kind_song = 's',
    kind_year = 'y', // its key is the year itself
    // Never shown. They hold what has no name, so that every song lies in an album of an artist.
    kind_no_artist = 'A',
    kind_no_album = 'B'
};

// The id of a node, without any heap: a long list is made of these.
class NodeId {
  public:
    NodeId(char kind, int64_t key);
    std::string_view text() const { return {text_, size_}; }

  private:
    char text_[24];
    size_t size_;
};

struct NodeRef {
    char kind = 0;
    int64_t key = 0;
};
// Nothing for what is no NodeId.
std::optional<NodeRef> parse_node_id(std::string_view id);

} // namespace vantro::service::catalogue

#endif
