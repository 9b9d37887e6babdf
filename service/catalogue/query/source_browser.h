// Browses and searches one state of one source. The object must live within one transaction.
#ifndef VANTRO_SERVICE_CATALOGUE_QUERY_SOURCE_BROWSER_H
#define VANTRO_SERVICE_CATALOGUE_QUERY_SOURCE_BROWSER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "service/catalogue/catalogue.h"
#include "service/catalogue/database/database.h"
#include "service/catalogue/query/list_cache.h"
#include "service/catalogue/query/wide_prefixes.h"
#include "service/catalogue/text/node_ids.h"

namespace vantro::service::catalogue {

// The place of a node. For a menu, `kind` is the kind of its entries and `id` is 0; the root has
// `kind_none` and 0.
struct Place {
    Kind kind = kind_none;
    int64_t id = 0;
};

class SourceBrowser {
  public:
    using ListPointer = std::shared_ptr<const List>;

    // @param source_type VANTRO_SOURCE_*, for the nodes of the source.
    SourceBrowser(Database &database, ListCache &cache, int32_t source, int32_t source_type = 0);

    std::optional<Place> find(std::string_view node);
    // Makes the lists by which others are sorted, and the results for few letters, so that no
    // client waits for them.
    void prepare();

    // The entries that browsing a node returns. Empty for the root: its menus are not entries.
    ListPointer entries(Place place);
    std::vector<Node> menus();
    int64_t song_count();
    // The songs of a node and of everything below it, in the order of play.
    ListPointer songs(Place place);
    // Appends the songs of a list, with the data that an engine needs.
    void queue(const List &list, std::vector<QueuedSong> &songs);

    // The results in that range. Nothing for an unknown filter.
    std::optional<std::vector<Entry>> search(std::string_view filter, std::string_view term,
                                             Range range);

    // Passes the entries of a node in that range to `nodes`.
    void browse(Place place, Range range, NodeSink &nodes);
    // Passes the nodes of the entries to `nodes`.
    void nodes(std::span<const Entry> entries, NodeSink &nodes);
    Node node(Entry entry); // with an empty id if there is none

  private:
    ListPointer kept(const std::string &what, const std::function<List()> &make);
    ListPointer all(Kind kind); // every song, or every node of a kind, by name
    List list_of(Place place);
    List songs_of(Place place);
    int64_t top_folder();
    void list_folder(int64_t folder, std::vector<Entry> &entries);
    void list_artist(int64_t artist, std::vector<Entry> &entries);
    void take_folder(int64_t folder, int depth, std::vector<Entry> &entries);
    void take_artist(int64_t artist, std::vector<Entry> &entries);
    void take_performed(int64_t artist, std::vector<Entry> &entries);
    void prepare_search();
    ListPointer finds_of(Searched searched, const std::string &expression);
    // Appends the wanted ones of the entries that have all of the words.
    void take_search(Searched searched, const std::vector<std::string> &words, Wanted &wanted,
                     std::vector<Entry> &entries);
    void songs_by_name(Range range, NodeSink &nodes);
    std::string name_of_list(const std::string &what) const;
    ListPointer by_album();

    Database &database_;
    ListCache &cache_;
    const int32_t source_;
    const int32_t source_type_;
    // The number of this catalogue among those that were made one after the other.
    const uint64_t catalogue_;
    const int64_t generation_;
};

// The node in the form for a NodeSink. It borrows the node's texts.
NodeRow row_of(const Node &node);

// The range as indices into a list of `size`: first and last plus one.
std::pair<size_t, size_t> bounds(Range range, size_t size);

// The words of a term, folded; a word that the index splits into several contains blanks. Reads at
// most search_bytes_max bytes and search_words_max words.
std::vector<std::string> words_of_term(std::string_view term);
// The words as an expression for the full-text index, quoted so that they cannot be syntax.
std::string match_expression(const std::vector<std::string> &words);
inline constexpr size_t search_bytes_max = 4096;
inline constexpr size_t search_words_max = 32;

} // namespace vantro::service::catalogue

#endif
