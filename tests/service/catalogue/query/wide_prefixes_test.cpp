// Searches for a few letters find the same as the index.
#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "service/catalogue/database/schema.h"
#include "service/catalogue/query/wide_prefixes.h"
#include "tests/support/process.h"

namespace vantro::service::catalogue {

namespace {

using Prefixes = test::RuntimeDirectory;

std::vector<Entry> in_order(const List &all, Database &database, Searched searched,
                            const std::string &expression) {
    std::vector<Entry> found;
    for (Rows rows = search_index(database, searched, expression); rows.next();) {
        const int64_t id = rows.integer(0);
        found.push_back(searched.kind == kind_song ? Entry::song(id) : Entry::node(id));
    }
    sort_by(all, found);
    return found;
}

constexpr int entries = 6000;

// Fills the index with words of a few letters. @return the entries of one source, in random order.
std::vector<int64_t> fill_index(Database &database, std::mt19937 &random) {
    const auto word = [&random] {
        // A few letters are common, and some words have letters that are never indexed.
        constexpr std::string_view letters = "aaaabbbcc1zé";
        std::string made;
        for (size_t i = 0, length = 1 + random() % 3; i < length; ++i) {
            made += letters[random() % (letters.size() - 2)];
        }
        return random() % 5 == 0 ? "é" + made : made;
    };
    std::vector<int64_t> numbers;
    Transaction whole(database);
    for (int i = 1; i <= entries; ++i) {
        database.run("INSERT INTO song_words(rowid, title, artist) VALUES(?1, ?2, ?3)", i,
                     word() + " " + word(), word());
        database.run("INSERT INTO node_words(rowid, album, of_artist, genre)"
                     " VALUES(?1, ?2, ?3, ?4)",
                     i, word(), word(), word());
        if (i % 7 != 0) { // the rest is of another source
            numbers.push_back(i);
        }
    }
    whole.commit();
    std::shuffle(numbers.begin(), numbers.end(), random);
    return numbers;
}

// The lists of many sources that appear and disappear.
void expect_the_latest_kept(const std::shared_ptr<const WidePrefixes> &prefixes) {
    ListCache cache;
    for (int source = 0; source < 1000; ++source) {
        cache.set_prefixes(std::to_string(source), "1", prefixes);
        EXPECT_EQ(cache.prefixes(std::to_string(source), "1"), prefixes);
        EXPECT_EQ(cache.prefixes(std::to_string(source), "2"), nullptr);
    }
    EXPECT_NE(cache.prefixes("990", "1"), nullptr);
    EXPECT_EQ(cache.prefixes("0", "1"), nullptr);
}

// Pages that begin and end within a word of bits, at its end, and after the last result.
void expect_pages(const WidePrefixes &prefixes, const std::vector<std::string> &words,
                  const std::vector<Entry> &all) {
    for (const size_t first : {size_t{0}, size_t{1}, size_t{63}, all.size() / 2, all.size()}) {
        for (const size_t count : {size_t{0}, size_t{1}, size_t{100}}) {
            std::vector<Entry> page;
            Wanted wanted = {first, count};
            EXPECT_TRUE(prefixes.take(words, wanted, page));
            const size_t end = std::min(first + count, all.size());
            EXPECT_EQ(page,
                      std::vector<Entry>(all.begin() + std::min(first, end), all.begin() + end));
            EXPECT_EQ(wanted.count, count - page.size());
        }
    }
}

TEST_F(Prefixes, FindWhatTheIndexFinds) {
    const auto database = open_catalogue_file(path_ + "/catalogue.db", [](const std::string &) {});
    std::mt19937 random(1);
    const std::vector<int64_t> numbers = fill_index(*database, random);
    for (const Searched searched :
         {Searched{kind_song, ""}, Searched{kind_album, "{album of_artist}"}}) {
        List list;
        for (const int64_t number : numbers) {
            list.entries.push_back(searched.kind == kind_song ? Entry::song(number)
                                                              : Entry::node(number));
        }
        list.place_entries({});
        const auto all = std::make_shared<const List>(std::move(list));
        const auto prefixes = std::make_shared<const WidePrefixes>(*database, searched, all);
        int kept = 0;
        for (const std::string one :
             {"a", "b", "c", "1", "z", "ab", "ba", "aa", "1a", "é", "abc"}) {
            for (const std::string two : {"", "a", "b", "cb", "é"}) {
                std::vector<std::string> words = {one};
                std::string expression = "\"" + one + "\"*";
                if (!two.empty()) {
                    words.push_back(two);
                    expression += " \"" + two + "\"*";
                }
                std::vector<Entry> found;
                Wanted wanted = {0, all->entries.size()};
                if (!prefixes->take(words, wanted, found)) {
                    continue;
                }
                ++kept;
                EXPECT_EQ(found, in_order(*all, *database, searched, expression)) << expression;
                EXPECT_EQ(wanted.count, all->entries.size() - found.size());
                expect_pages(*prefixes, words, found);
            }
        }
        EXPECT_GT(kept, 5) << searched.columns;
        EXPECT_LT(kept, 40) << searched.columns;
        expect_the_latest_kept(prefixes);
    }
}

} // namespace

} // namespace vantro::service::catalogue
