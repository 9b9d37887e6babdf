// Parts that need no file: names, ids, heads of pictures, playlists, search terms.
#include <algorithm>

#include "service/catalogue/cover.h"
#include "service/catalogue/files/picture_head.h"
#include "service/catalogue/files/playlist_file.h"
#include "service/catalogue/query/source_browser.h"
#include "service/catalogue/text/collation.h"
#include "service/catalogue/text/node_ids.h"
#include "service/catalogue/text/search_words.h"
#include "tests/service/catalogue/collection.h"

namespace vantro::service::catalogue {

namespace {

TEST(Names, AreOrderedAsPeopleExpect) {
    const std::vector<std::string> ordered = {
        "",      "#1",     "1",     "2",       "002a",     "10",  "a",     "A1x",  "a2",  "A10",
        "Émile", "Emilia", "emily", "Track 2", "track 10", "Træ", "Ωmega", "Ёлка", "жук", "日本"};
    for (size_t i = 0; i < ordered.size(); ++i) {
        for (size_t j = i + 1; j < ordered.size(); ++j) {
            EXPECT_LT(sort_key(ordered[i]), sort_key(ordered[j]))
                << ordered[i] << ", " << ordered[j];
        }
    }
    EXPECT_EQ(sort_key("x"), sort_key("x"));
    EXPECT_LE(sort_key(std::string(1 << 20, 'x')).size(), sort_key_max);
    sort_key("\xFF\xFE\x80 not UTF-8"); // is no failure
}

TEST(Names, AreTheSameWhateverTheirCase) {
    EXPECT_EQ(folded(" The BAND\t"), folded("the band"));
    EXPECT_EQ(folded("Bj\xC3\xB6rk"), folded("BJO\xCC\x88RK")) << "composed or not";
    EXPECT_NE(folded("Bj\xC3\xB6rk"), folded("Bjork"));
    EXPECT_EQ(folded(" \n"), "");
}

TEST(NodeIds, AreReadBackAndNothingElseIs) {
    for (const int64_t key : {int64_t{0}, int64_t{-1}, INT64_MIN, int64_t{0xABC}}) {
        const auto ref = parse_node_id(NodeId(kind_song, key).text());
        ASSERT_TRUE(ref);
        EXPECT_EQ(ref->key, key);
    }
    EXPECT_EQ(parse_node_id("y1999")->key, 1999);
    for (const char *id :
         {"s", "s00000000000000g", "s0000000000000ABC", "s 00000000000abc", "A0000000000000abc",
          "s00000000000000000", "y01999", "y", "y99999999999999999999", "y-", "songs2"}) {
        EXPECT_FALSE(parse_node_id(id)) << id;
    }
    EXPECT_NE(key_of(kind_song, "x"), key_of(kind_folder, "x"));
    EXPECT_NE(key_of(kind_song, "x"), key_of(kind_song, "x", 1));
}

TEST(Pictures, TellTheirSize) {
    const std::string jpeg = std::string("\xFF\xD8\xFF\xE0\x00\x04xx", 8) + "\xFF\xFF\xC2" +
                             big_endian(11, 2) + "\x08" + big_endian(480, 2) + big_endian(640, 2);
    const auto head = picture_head(jpeg);
    ASSERT_TRUE(head);
    EXPECT_EQ(head->width, 640);
    EXPECT_EQ(head->height, 480);
    EXPECT_EQ(picture_head(png(3, 4))->height, 4);
    for (size_t size = 0; size + 1 < jpeg.size(); ++size) {
        EXPECT_FALSE(picture_head(jpeg.substr(0, size)));
    }
    for (size_t size = 0; size < 24; ++size) {
        EXPECT_FALSE(picture_head(png(3, 4).substr(0, size)));
    }
    EXPECT_FALSE(picture_head(png(0, 4)));
    EXPECT_FALSE(picture_head(png(0xFFFFFFFF, 4)));
    EXPECT_FALSE(picture_head(std::string("\xFF\xD8\xFF\xE0\x00\x01 a length that goes back", 28)));
    int rank = 0;
    for (const char *name :
         {"cover.jpg", "Folder.JPEG", "FRONT.png", "albumCover.png", "album.Jpg", "back.jpg"}) {
        EXPECT_EQ(picture_rank(name), rank++) << name;
    }
    for (const char *name : {"cover.gif", "cover", "cover.jpg.txt"}) {
        EXPECT_FALSE(picture_rank(name)) << name;
    }
}

TEST(Playlists, AreParsed) {
    using Entries = std::vector<std::string>;
    EXPECT_EQ(parse_playlist("x.M3U8", "\xEF\xBB\xBF#EXTM3U\r\n#EXTINF:1,x\r\n a b.mp3\r\n\r\nc\n"),
              (Entries{"a b.mp3", "c"}));
    EXPECT_EQ(parse_playlist("x.pls", "[playlist]\nFile2=b\nTitle2=t\nfile1=a=b\nFile\nLength=2"),
              (Entries{"b", "a=b"}));
    EXPECT_EQ(parse_playlist("x.m3u", std::string("a\0b\nc", 5)), Entries{"c"});

    const std::pair<std::string, const char *> table[] = {
        {"a.mp3", "in/a.mp3"},
        {"./b/../a.mp3", "in/a.mp3"},
        {"../a.mp3", "a.mp3"},
        {"sub\\a.mp3", "in/sub/a.mp3"},
        {"/top/music/x/a.mp3", "x/a.mp3"},
        {"file:///top/music/a%20b%2", "a b%2"},
        {"FILE://localhost/top/music/a", "a"},
        {"../../a.mp3", nullptr},
        {"/top/music/../a", nullptr},
        {"/top/music", nullptr},
        {"/top/musical/a", nullptr},
        {"http://host/a.mp3", nullptr},
        {"file://host/top/music/a", nullptr},
        {"..", nullptr},
    };
    for (const auto &[entry, path] : table) {
        const auto resolved = resolve_entry(entry, "in", "/top/music");
        EXPECT_EQ(resolved.value_or("nothing"), path ? path : "nothing") << entry;
    }
}

TEST(Words, AreTheSameForWhatASearchShouldNotTellApart) {
    const std::pair<const char *, const char *> table[] = {
        {"Café  \"del\" Mar", "cafe del mar"},
        {"AC/DC", "ac dc"},
        {"ΟΔΟΣ ὁδός", "οδοσ οδοσ"},
        {"Straße STRASSE", "strasse strasse"},
        {"ab日本c", "ab 日 本 c"},
        {"がか", "か\u3099 か"},
        {"!!!", "！！！"},
        {"+-= ÷", "＋－＝ ÷"},
        {"I❤️NY 🎵", "i ❤ ny 🎵"},
        {"\"\" '", ""},
        {"Help!", "help"},
        {"", ""},
    };
    for (const auto &[text, words] : table) {
        EXPECT_EQ(search_words(text), words) << text;
    }
    search_words("\xFF\xFE\x80 not UTF-8"); // is no failure
}

TEST(Terms, AreWordsAndNothingElse) {
    const auto expression_of = [](const std::string &term) {
        return match_expression(words_of_term(term));
    };
    EXPECT_EQ(expression_of(" one\t\"two\" "), "\"one\"* \"two\"*");
    EXPECT_EQ(expression_of("\n \t"), "");
    EXPECT_LE(expression_of(std::string(1 << 20, '!')).size(), 3 * search_bytes_max + 8);
    std::string many;
    for (int i = 0; i < 100'000; ++i) {
        many += "w ";
    }
    const std::string expression = expression_of(many);
    EXPECT_EQ(std::count(expression.begin(), expression.end(), '*'),
              static_cast<ptrdiff_t>(search_words_max));
}

} // namespace

} // namespace vantro::service::catalogue
