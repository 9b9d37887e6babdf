// The part of SourceBrowser that searches.
#include "service/catalogue/query/source_browser.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include <vantro/catalogue.h>

#include "service/catalogue/text/search_words.h"
#include "service/catalogue/text/utf8.h"

namespace vantro::service::catalogue {

std::string match_expression(std::string_view term) {
    const std::string text = clean_text(term, search_bytes_max);
    std::string expression;
    size_t words = 0;
    std::string_view rest = text;
    while (!rest.empty() && words < search_words_max) {
        const size_t end = rest.find_first_of(" \t\r\n\v\f");
        // A word of the term may be several words of the index, which must then be neighbours.
        const std::string word = search_words(rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        if (!word.empty()) {
            expression += fmt::format("{}\"{}\"*", expression.empty() ? "" : " ", word);
            ++words;
        }
    }
    return expression;
}

// The index gives its rows by number, and sort_by() takes entries in this order.
void SourceBrowser::take_search(const char *sql, const std::string &words, Kind kind,
                                std::vector<Entry> &entries) {
    std::vector<Entry> found;
    for (Rows rows = database_.query(sql, words); rows.next();) {
        const int64_t id = rows.integer(0);
        found.push_back(kind == kind_song ? Entry::song(id) : Entry::node(id));
    }
    sort_by(*all(kind), found);
    entries.insert(entries.end(), found.begin(), found.end());
}

std::optional<SourceBrowser::ListPointer> SourceBrowser::search(std::string_view filter,
                                                                std::string_view term) {
    struct Part {
        Kind kind;
        const char *columns;
    };
    struct Filter {
        std::string_view name;
        std::vector<Part> parts;
    };
    static const Filter filters[] = {
        {"", {{kind_artist, "{artist}"}, {kind_album, "{album of_artist}"}, {kind_song, nullptr}}},
        {VANTRO_FILTER_ARTIST, {{kind_artist, "{artist}"}}},
        {VANTRO_FILTER_ALBUM, {{kind_album, "{album}"}}},
        {VANTRO_FILTER_TITLE, {{kind_song, "{title}"}}},
        {VANTRO_FILTER_GENRE, {{kind_genre, "{genre}"}}},
        {VANTRO_FILTER_COMPOSER, {{kind_song, "{composer}"}}},
    };
    const auto *found = std::find_if(std::begin(filters), std::end(filters),
                                     [&](const Filter &each) { return each.name == filter; });
    if (found == std::end(filters)) {
        return std::nullopt;
    }
    const std::string words = match_expression(term);
    if (words.empty()) {
        return std::make_shared<const List>();
    }
    return kept(fmt::format("search {} {}", filter, words), [&] {
        List list;
        for (const Part &part : found->parts) {
            const std::string expression =
                part.columns ? fmt::format("{} : ({})", part.columns, words) : words;
            take_search(part.kind == kind_song
                            ? "SELECT rowid FROM song_words WHERE song_words MATCH ?1"
                              " ORDER BY rowid"
                            : "SELECT rowid FROM node_words WHERE node_words MATCH ?1"
                              " ORDER BY rowid DESC",
                        expression, part.kind, list.entries);
        }
        return list;
    });
}

} // namespace vantro::service::catalogue
