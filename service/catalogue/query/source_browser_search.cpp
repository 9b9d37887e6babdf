// The part of SourceBrowser that searches.
#include "service/catalogue/query/source_browser.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include <fmt/format.h>

#include <vantro/catalogue.h>

#include "service/catalogue/text/search_words.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

std::vector<std::string> words_of_term(std::string_view term) {
    const std::string text = clean_text(term, search_bytes_max);
    std::vector<std::string> words;
    std::string_view rest = text;
    while (!rest.empty() && words.size() < search_words_max) {
        const size_t end = rest.find_first_of(" \t\r\n\v\f");
        // A word of the term may be several words of the index, which must then be neighbours.
        const std::string word = search_words(rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        if (!word.empty()) {
            words.push_back(word);
        }
    }
    return words;
}

std::string match_expression(const std::vector<std::string> &words) {
    std::string expression;
    for (const std::string &word : words) {
        expression += fmt::format("{}\"{}\"*", expression.empty() ? "" : " ", word);
    }
    return expression;
}

namespace {

// The scope of each filter. With the first one, albums are also found by their artists, and songs
// by all of their texts.
struct Filter {
    std::string_view name;
    std::vector<Searched> parts;
};
const Filter filters[] = {
    {"", {{kind_artist, "{artist}"}, {kind_album, "{album of_artist}"}, {kind_song, ""}}},
    {VANTRO_FILTER_ARTIST, {{kind_artist, "{artist}"}}},
    {VANTRO_FILTER_ALBUM, {{kind_album, "{album}"}}},
    {VANTRO_FILTER_TITLE, {{kind_song, "{title}"}}},
    {VANTRO_FILTER_GENRE, {{kind_genre, "{genre}"}}},
    {VANTRO_FILTER_COMPOSER, {{kind_song, "{composer}"}}},
};

} // namespace

void SourceBrowser::prepare_search() {
    for (const Searched &part : filters[0].parts) {
        const std::string list = fmt::format("{} {}", source_, part.columns);
        const std::string name = name_of_list(std::string(part.columns));
        if (!cache_.prefixes(list, name)) {
            cache_.set_prefixes(
                list, name, std::make_shared<const WidePrefixes>(database_, part, all(part.kind)));
        }
    }
}

SourceBrowser::ListPointer SourceBrowser::finds_of(Searched searched,
                                                   const std::string &expression) {
    const std::string name =
        fmt::format("search {}{} {}", char{searched.kind}, searched.columns, expression);
    return kept(name, [&] {
        List list;
        for (Rows rows = search_index(database_, searched, expression); rows.next();) {
            const int64_t id = rows.integer(0);
            list.entries.push_back(searched.kind == kind_song ? Entry::song(id) : Entry::node(id));
        }
        sort_by(*all(searched.kind), list.entries);
        list.entries.shrink_to_fit(); // the cache is limited by the memory of its lists
        return list;
    });
}

void SourceBrowser::take_search(Searched searched, const std::vector<std::string> &words,
                                Wanted &wanted, std::vector<Entry> &entries) {
    const auto prefixes = cache_.prefixes(fmt::format("{} {}", source_, searched.columns),
                                          name_of_list(std::string(searched.columns)));
    if (prefixes && prefixes->take(words, wanted, entries)) {
        return;
    }
    const ListPointer found = finds_of(searched, match_expression(words));
    const size_t skipped = std::min(wanted.skip, found->entries.size());
    const size_t taken = std::min(wanted.count, found->entries.size() - skipped);
    const Entry *const first = found->entries.data() + skipped;
    entries.insert(entries.end(), first, first + taken);
    wanted.skip -= skipped;
    wanted.count -= taken;
}

std::optional<std::vector<Entry>> SourceBrowser::search(std::string_view filter,
                                                        std::string_view term, Range range) {
    const auto *found = std::find_if(std::begin(filters), std::end(filters),
                                     [&](const Filter &each) { return each.name == filter; });
    if (found == std::end(filters)) {
        return std::nullopt;
    }
    std::vector<Entry> entries;
    const std::vector<std::string> words = words_of_term(term);
    if (words.empty()) {
        return entries;
    }
    Wanted wanted = {static_cast<size_t>(std::max(range.offset, 0)),
                     range.count <= 0 ? std::numeric_limits<size_t>::max()
                                      : static_cast<size_t>(range.count)};
    // If artists and albums fill the page, songs need not be searched. A short term has far more
    // songs than artists or albums.
    for (const Searched &part : found->parts) {
        if (wanted.count > 0) {
            take_search(part, words, wanted, entries);
        }
    }
    return entries;
}

} // namespace vantro::service::catalogue
