// The part of SourceBrowser that searches.
#include "service/catalogue/query/source_browser.h"

#include <algorithm>
#include <iterator>

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

// What each filter looks through. Of the first, albums are found by their artists too, but songs by
// all that is known of them.
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

void SourceBrowser::take_search(Searched searched, const std::vector<std::string> &words,
                                std::vector<Entry> &entries) {
    const auto prefixes = cache_.prefixes(fmt::format("{} {}", source_, searched.columns),
                                          name_of_list(std::string(searched.columns)));
    std::optional<std::vector<Entry>> found = prefixes ? prefixes->find(words) : std::nullopt;
    if (!found) {
        found.emplace();
        for (Rows rows = search_index(database_, searched, match_expression(words)); rows.next();) {
            const int64_t id = rows.integer(0);
            found->push_back(searched.kind == kind_song ? Entry::song(id) : Entry::node(id));
        }
        sort_by(*all(searched.kind), *found);
    }
    entries.insert(entries.end(), found->begin(), found->end());
}

std::optional<SourceBrowser::ListPointer> SourceBrowser::search(std::string_view filter,
                                                                std::string_view term) {
    const auto *found = std::find_if(std::begin(filters), std::end(filters),
                                     [&](const Filter &each) { return each.name == filter; });
    if (found == std::end(filters)) {
        return std::nullopt;
    }
    const std::vector<std::string> words = words_of_term(term);
    if (words.empty()) {
        return std::make_shared<const List>();
    }
    return kept(fmt::format("search {} {}", filter, match_expression(words)), [&] {
        List list;
        for (const Searched &part : found->parts) {
            take_search(part, words, list.entries);
        }
        return list;
    });
}

} // namespace vantro::service::catalogue
