// Searches for few letters find the same as the index.
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

TEST_F(Prefixes, FindWhatTheIndexFinds) {
    constexpr int entries = 6000;
    const auto database = open_catalogue_file(path_ + "/catalogue.db", [](const std::string &) {});
    std::mt19937 random(1);
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
    {
        Transaction whole(*database);
        for (int i = 1; i <= entries; ++i) {
            database->run("INSERT INTO song_words(rowid, title, artist) VALUES(?1, ?2, ?3)", i,
                          word() + " " + word(), word());
            database->run("INSERT INTO node_words(rowid, album, of_artist, genre)"
                          " VALUES(?1, ?2, ?3, ?4)",
                          i, word(), word(), word());
            if (i % 7 != 0) { // the rest is of another source
                numbers.push_back(i);
            }
        }
        whole.commit();
    }
    std::shuffle(numbers.begin(), numbers.end(), random);
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
                if (const auto found = prefixes->find(words)) {
                    ++kept;
                    EXPECT_EQ(*found, in_order(*all, *database, searched, expression))
                        << expression;
                }
            }
        }
        EXPECT_GT(kept, 5) << searched.columns;
        EXPECT_LT(kept, 40) << searched.columns;

        ListCache cache; // of sources that come and go
        for (int source = 0; source < 1000; ++source) {
            cache.set_prefixes(std::to_string(source), "1", prefixes);
            EXPECT_EQ(cache.prefixes(std::to_string(source), "1"), prefixes);
            EXPECT_EQ(cache.prefixes(std::to_string(source), "2"), nullptr);
        }
        EXPECT_NE(cache.prefixes("990", "1"), nullptr);
        EXPECT_EQ(cache.prefixes("0", "1"), nullptr);
    }
}

} // namespace

} // namespace vantro::service::catalogue
