// The finds of searches for one or two letters.
//
// A search that begins with so little finds a large part of a long list, and the full-text index
// gives its finds one by one. So the finds of those letters are kept, a bit for each entry.
#ifndef VANTRO_SERVICE_CATALOGUE_QUERY_WIDE_PREFIXES_H
#define VANTRO_SERVICE_CATALOGUE_QUERY_WIDE_PREFIXES_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "service/catalogue/database/database.h"
#include "service/catalogue/query/list_cache.h"
#include "service/catalogue/text/node_ids.h"

namespace vantro::service::catalogue {

// What a search looks through: the songs, or the nodes of a kind, and which columns of their words.
struct Searched {
    Kind kind;
    std::string_view columns; // as the index has them; all if it is empty
};

// The numbers that the index gives for an expression, in the order in which entries sort.
Rows search_index(Database &database, Searched searched, std::string_view expression);

class WidePrefixes {
  public:
    // Reads the index. `all` has every entry of the kind in a source, in the order of lists.
    WidePrefixes(Database &database, Searched searched, std::shared_ptr<const List> all);

    // The entries that have, for each of the words, one that begins with it; in the order of the
    // list. Nothing if a word is not kept, which says nothing about what it finds.
    std::optional<std::vector<Entry>> find(const std::vector<std::string> &words) const;

    // What it takes, with the list that it holds.
    size_t bytes() const { return bytes_; }

  private:
    // One for each entry of the list, 64 in each.
    using Bits = std::vector<uint64_t>;

    void keep_all(Database &database);
    // Keeps it, if it is worth keeping.
    void keep(Database &database, const std::string &prefix);

    const Searched searched_;
    std::shared_ptr<const List> all_; // null where nothing is kept
    std::unordered_map<std::string, Bits> kept_;
    size_t bytes_ = sizeof(WidePrefixes);
};

} // namespace vantro::service::catalogue

#endif
