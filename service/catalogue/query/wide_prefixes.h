// The results of searches for one or two letters.
//
// A search for so few letters finds a large part of a long list, and the full-text index returns
// its results one by one. So the results for those letters are cached, with one bit for each entry.
#ifndef VANTRO_SERVICE_CATALOGUE_QUERY_WIDE_PREFIXES_H
#define VANTRO_SERVICE_CATALOGUE_QUERY_WIDE_PREFIXES_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "service/catalogue/database/database.h"
#include "service/catalogue/query/list_cache.h"
#include "service/catalogue/text/node_ids.h"

namespace vantro::service::catalogue {

// The scope of a search: the songs, or the nodes of a kind, and the columns of the index.
struct Searched {
    Kind kind;
    std::string_view columns; // names of the index's columns; "": all
};

// The numbers that the index returns for an expression, in the order of entries.
Rows search_index(Database &database, Searched searched, std::string_view expression);

// The wanted part of the results: `count` of them, after `skip` others. Both numbers decrease as
// results are found, so that several parts of a search can be read one after the other.
struct Wanted {
    size_t skip;
    size_t count;
};

class WidePrefixes {
  public:
    // Reads the index. `all` has every entry of the kind in a source, in the order of lists.
    WidePrefixes(Database &database, Searched searched, std::shared_ptr<const List> all);

    // Appends the wanted ones of the entries that have, for each of the words (at least one), a
    // word that begins with it; in the order of the list. Returns false, and appends nothing, if a
    // word is not cached; such a word may have results.
    bool take(const std::vector<std::string> &words, Wanted &wanted,
              std::vector<Entry> &entries) const;

    // The bytes that it takes, including the list that it holds.
    size_t bytes() const { return bytes_; }

  private:
    // One bit for each entry of the list, 64 in each element.
    using Bits = std::vector<uint64_t>;

    void keep_all(Database &database);
    // Caches the results of a prefix, if that is worthwhile.
    void keep(Database &database, const std::string &prefix);

    const Searched searched_;
    std::shared_ptr<const List> all_; // null if nothing is cached
    std::unordered_map<std::string, Bits> kept_;
    size_t bytes_ = sizeof(WidePrefixes);
};

} // namespace vantro::service::catalogue

#endif
