// What clients see of a collection.
#include <cerrno>
#include <set>

#include "service/catalogue/query/metadata.h"
#include "service/catalogue/text/utf8.h"
#include "tests/service/catalogue/collection.h"

namespace vantro::service::catalogue {

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class Catalogued : public Collection {
  protected:
    // Two albums of one artist, one of several artists, songs outside of albums, one without tags.
    void add_all() {
        const std::pair<const char *, const char *> files[] = {
            {"Anna/Zwei/1", "TITLE=Track 10|ARTIST=Anna|ALBUM=Zwei|GENRE=Rock|DATE=2001-05-01|"
                            "TRACKNUMBER=2"},
            {"Anna/Zwei/2", "TITLE=Track 2|ARTIST=anna|ALBUM=ZWEI|GENRE=rock|DATE=2001|"
                            "TRACKNUMBER=1/2"},
            {"Anna/Zwei/3", "TITLE=On disc 2|ARTIST=Anna|ALBUM=Zwei|DISCNUMBER=2|TRACKNUMBER=1"},
            {"Anna/Eins/1", "TITLE=First|ARTIST=Anna|ALBUM=Eins|DATE=1999|COMPOSER=Johann"},
            {"Mixed/1", "TITLE=One|ARTIST=Bert|ALBUM=Hits|COMPILATION=1|TRACKNUMBER=1"},
            {"Mixed/2", "TITLE=Two|ARTIST=Carl|ALBUM=Hits|COMPILATION=1|TRACKNUMBER=2"},
            {"loose 10", "ARTIST=Anna"},
            {"loose 9", "ARTIST=Anna"},
            {"untagged", ""},
        };
        for (const auto &[file, tags] : files) {
            add(file + std::string(".flac"), values_of(tags));
        }
    }
};

TEST_F(Catalogued, IsATree) {
    add_all();
    open();
    const std::vector<Source> sources = store_->sources();
    ASSERT_EQ(sources.size(), 1u);
    EXPECT_EQ(sources[0].name, "music");
    EXPECT_EQ(sources[0].status, VANTRO_SOURCE_READY);
    EXPECT_FALSE(sources[0].uid.empty());

    std::vector<std::pair<std::string, int>> menus;
    for (const Node &menu : browse(VANTRO_NODE_ROOT)) {
        menus.emplace_back(menu.id, menu.count);
    }
    EXPECT_EQ(menus, (std::vector<std::pair<std::string, int>>{{"artists", 4},
                                                               {"albums", 3},
                                                               {"genres", 1},
                                                               {"years", 2},
                                                               {"songs", 9},
                                                               {"folders", 5},
                                                               {"playlists", 0}}));
    EXPECT_EQ(names("artists"), (Names{"Anna", "Bert", "Carl", "Various Artists"}));
    EXPECT_EQ(names("albums"), (Names{"Eins", "Hits", "Zwei"}));
    EXPECT_EQ(names("years"), (Names{"1999", "2001"}));
    EXPECT_EQ(names("songs"), (Names{"First", "loose 9", "loose 10", "On disc 2", "One", "Track 2",
                                     "Track 10", "Two", "untagged"}));
    EXPECT_EQ(names("folders"), (Names{"Anna", "Mixed", "loose 9", "loose 10", "untagged"}));

    const Node anna = entry("artists", "Anna");
    EXPECT_EQ(anna.type, VANTRO_NODE_ARTIST);
    EXPECT_EQ(names(anna.id), (Names{"Eins", "Zwei", "loose 9", "loose 10"}));
    const Node zwei = entry("albums", "Zwei");
    EXPECT_EQ(names(zwei.id), (Names{"Track 2", "Track 10", "On disc 2"}));
    EXPECT_EQ(names(entry("genres", "Rock").id), (Names{"Track 2", "Track 10"}));
    EXPECT_EQ(names("y2001"), (Names{"Track 2", "Track 10"}));
    // Every count is the number of entries.
    std::vector<Node> all = browse(VANTRO_NODE_ROOT);
    for (size_t i = 0; i < all.size(); ++i) {
        const std::vector<Node> inside = browse(all[i].id);
        EXPECT_EQ(inside.size(), static_cast<size_t>(all[i].count)) << all[i].name;
        all.insert(all.end(), inside.begin(), inside.end());
    }

    EXPECT_EQ(played(anna.id),
              (Names{"First", "Track 2", "Track 10", "On disc 2", "loose 9", "loose 10"}));
    const Names folder_by_folder = {"First", "Track 2", "Track 10", "On disc 2", "One",
                                    "Two",   "loose 9", "loose 10", "untagged"};
    EXPECT_EQ(played(VANTRO_NODE_ROOT), folder_by_folder);
    EXPECT_EQ(played("folders"), folder_by_folder);
    EXPECT_EQ(all_songs().size(), 9u);
    EXPECT_EQ(store_->song_count(), 9);
    EXPECT_EQ(all_songs()[0].duration_ms, 400);
    EXPECT_EQ(played("genres"), (Names{"Track 2", "Track 10"}));
    EXPECT_EQ(played("songs"), names("songs"));
    const Node song = entry(zwei.id, "Track 2");
    EXPECT_EQ(played(song.id), Names{"Track 2"});
    EXPECT_TRUE(browse(song.id).empty());
}

// Whatever time each file takes to read.
TEST_F(Catalogued, SpellsANameAsTheFirstFileDoes) {
    add("a.flac", {{"GENRE", "Rock"}}, png(64, 64, std::string(8 << 20, 'x')));
    for (const char *file : {"b.flac", "c.flac", "d.flac"}) {
        add(file, {{"GENRE", "ROCK"}});
    }
    open();
    EXPECT_EQ(names("genres"), Names{"Rock"});
}

TEST_F(Catalogued, MakesOneAlbumOfOneFolder) {
    // Album artist and artist of the songs of one folder, and whom the album is by.
    const struct {
        std::vector<std::pair<const char *, const char *>> songs;
        Names by;
    } table[] = {
        {{{"", "x"}, {"", "x"}, {"", "y"}}, {"x"}},
        {{{"", "x"}, {"", "y"}}, {"Various Artists"}},
        {{{"z", "x"}, {"", "y"}, {"", "y"}, {"", "y"}}, {"z"}},
        {{{"z", "x"}, {"v", "y"}}, {"Various Artists"}},
        {{{"z", "x"}, {"z", "x"}, {"v", "x"}, {"", "x"}}, {"z"}},
        {{{"", ""}, {"", ""}}, {""}},
        {{{"", ""}, {"", ""}, {"", "x"}}, {"x"}},
    };
    const auto file = [](int row, size_t song) { return fmt::format("{}/{}.flac", row, song); };
    const auto tags = [](int row, size_t song, const auto &artists) {
        return Values{{"TITLE", fmt::format("r{}s{}", row, song)},
                      {"ALBUM", fmt::format("album {}", row)},
                      {artists.first[0] ? "ALBUMARTIST" : "NONE", artists.first},
                      {artists.second[0] ? "ARTIST" : "NONE", artists.second}};
    };
    int row = 0;
    for (const auto &[songs, by] : table) {
        for (size_t i = 0; i < songs.size(); ++i) {
            add(file(row, i), tags(row, i, songs[i]));
        }
        ++row;
    }
    open();
    const auto artists_of = [&](int each) {
        Names artists;
        for (const Node &album : browse("albums")) {
            if (album.name == fmt::format("album {}", each)) {
                artists.push_back(metadata(album.id).artist);
            }
        }
        return artists;
    };
    for (int each = 0; each < row; ++each) {
        EXPECT_EQ(artists_of(each), table[each].by) << each;
    }
    EXPECT_EQ(names("albums").size(), table[0].by.size() * static_cast<size_t>(row));
    EXPECT_EQ(names("artists"), (Names{"Various Artists", "x", "y", "z"}));
    // An artist who performs on another's album is found, shown and played as well.
    EXPECT_EQ(found("artist", "y"), Names{"y"});
    const Names by_y = {"r0s2", "r1s1", "r2s1", "r2s2", "r2s3", "r3s1"};
    EXPECT_EQ(names(entry("artists", "y").id), by_y);
    EXPECT_EQ(played(entry("artists", "y").id), by_y);
    EXPECT_EQ(entry("artists", "y").count, 6);
    EXPECT_EQ(played("artists").size(), all_songs().size()) << "each once";

    // With another album in the folder each song is an album of its own; without it, all are one
    // again.
    add("1/other.flac", {{"ALBUM", "other"}, {"ARTIST", "x"}});
    fs::remove(music_ / file(0, 0));
    scan();
    EXPECT_EQ(artists_of(0), Names{"Various Artists"});
    EXPECT_EQ(artists_of(1), (Names{"x", "y"}));
    fs::remove(music_ / "1/other.flac");
    scan();
    EXPECT_EQ(artists_of(1), Names{"Various Artists"});
}

TEST_F(Catalogued, GivesPagesAndRefusesWhatIsNotThere) {
    add_all();
    open();
    const Names all = names("songs");
    const auto page = [&](int32_t offset, int32_t count) {
        return names(browse("songs", {offset, count}));
    };
    for (const bool list_is_made : {true, false}) {
        open(list_is_made);
        EXPECT_EQ(page(0, 3), Names(all.begin(), all.begin() + 3));
        EXPECT_EQ(page(7, 100), Names(all.begin() + 7, all.end()));
        EXPECT_EQ(page(-5, INT32_MIN), all);
        EXPECT_EQ(page(INT32_MIN, 1), Names{all[0]});
        EXPECT_EQ(page(9, 1), Names{});
        EXPECT_EQ(page(INT32_MAX, INT32_MAX), Names{});
    }
    EXPECT_EQ(names(browse(VANTRO_NODE_ROOT, {6, 5})), Names{"Playlists"});

    std::string wrong[] = {"x",
                           "Songs",
                           "song",
                           "s0123456789abcdef",
                           "y1",
                           "A",
                           std::string(1, '\0'),
                           "' OR 1=1 --",
                           "\xFF\xFE",
                           std::string(1 << 20, 's')};
    NodeList nodes;
    std::optional<SongMetadata> found;
    std::vector<std::string> values;
    std::vector<QueuedSong> songs;
    for (const std::string &id : wrong) {
        EXPECT_EQ(store_->browse(source_, id, {}, nodes), ENOENT);
        EXPECT_EQ(store_->metadata(source_, id, found), ENOENT);
        EXPECT_EQ(store_->extended_metadata(source_, id, {"title"}, values), ENOENT);
        EXPECT_EQ(store_->songs(source_, id, songs), ENOENT);
    }
    for (const int32_t source : {0, -1, source_ + 1, INT32_MIN}) {
        EXPECT_EQ(store_->browse(source, "", {}, nodes), ENOENT);
        EXPECT_EQ(store_->search(source, "", "one", {}, nodes), ENOENT);
    }
    EXPECT_EQ(store_->search(source_, "year", "one", {}, nodes), EINVAL);
    EXPECT_TRUE(nodes.empty());
    for (const Node &node : song_nodes({0, -1, INT64_MAX, INT64_MIN})) {
        EXPECT_EQ(node.id, "");
        EXPECT_EQ(node.type, VANTRO_NODE_SONG);
    }
    Node node;
    SongMetadata data;
    EXPECT_EQ(store_->song(-1, node, data), ENOENT);
}

TEST_F(Catalogued, IsSearched) {
    add("1.flac", {{"TITLE", "Caf\xC3\xA9 \"del\" Mar"},
                   {"ARTIST", "Bj\xC3\xB6rk"},
                   {"ALBUM", "AND OR NOT"},
                   {"COMPOSER", "J. S. Bach"},
                   {"GENRE", "Trip-Hop"}});
    add("2.flac", {{"TITLE", "\xE6\x97\xA5\xE6\x9C\xAC\xE3\x81\xAE\xE5\xA4\x8F"},
                   {"ARTIST", "AC/DC"},
                   {"ALBUM", "AND OR NOT"}});
    add("3.flac", {{"TITLE", "Marmalade 10"}, {"ARTIST", "Anna Mar"}, {"ALBUM", "title: x*"}});
    add("4.flac", {{"TITLE", "Marmalade 9"}, {"ARTIST", "Anna Mar"}, {"ALBUM", "title: x*"}});
    add("5.flac", {{"TITLE", "Straße"}, {"ARTIST", "!!!"}, {"ALBUM", "ΟΔΟΣ 🎵"}});
    open();
    const std::string cafe = "Caf\xC3\xA9 \"del\" Mar";
    const std::string summer = "\xE6\x97\xA5\xE6\x9C\xAC\xE3\x81\xAE\xE5\xA4\x8F";
    const struct {
        const char *filter;
        std::string term;
        Names names;
    } table[] = {
        {"title", "cafe", {cafe}},
        {"title", "mar", {cafe, "Marmalade 9", "Marmalade 10"}},
        {"title", "mar 9", {"Marmalade 9"}},
        {"title", "marma lade", {}},
        {"title", "Bj\xC3\xB6rk", {}},
        {"title", "\xE6\x9C\xAC", {summer}}, // in the middle of a text without blanks
        {"title", "\xE6\x9C\xAC\xE5\xA4\x8F", {}},
        {"title", "\"del\"", {cafe}},
        {"title", "\"", {}},
        {"title", "\"\" mar* ^cafe", {cafe}},
        {"title", "title:", {}},
        {"artist", "!", {"!!!"}},
        {"album", "οδός", {"ΟΔΟΣ 🎵"}},
        {"artist", "bjork", {"Bj\xC3\xB6rk"}},
        {"artist", "ac/dc", {"AC/DC"}},
        {"album", "AND", {"AND OR NOT", "AND OR NOT"}},
        {"album", "anna", {}},
        {"album", "x", {"title: x*"}},
        {"genre", "hop", {"Trip-Hop"}},
        {"composer", "bach j", {cafe}},
        {"composer", "{composer} : bach", {}},
        {"", "bjork cafe", {cafe}}, // one word here, one there
        {"", "anna", {"Anna Mar", "title: x*", "Marmalade 9", "Marmalade 10"}},
        {"", "bach", {cafe}},
        {"", "NEAR(", {}},
        {"", "-", {}},
        {"", "", {}},
        {"", "' ; DROP TABLE song", {}},
        {"",
         std::string("mar\0x", 5),
         {"Anna Mar", "title: x*", cafe, "Marmalade 9", "Marmalade 10"}},
        {"", "\xFF\xFE", {}},
        {"", std::string(1 << 20, 'x'), {}},
        {"", std::string(1 << 20, '"'), {}},
        {"", std::string(1 << 20, '('), {}},
    };
    for (const auto &[filter, term, names] : table) {
        EXPECT_EQ(found(filter, term), names) << filter << " | " << term.substr(0, 40);
    }
    NodeList nodes;
    EXPECT_EQ(store_->search(source_, "", "anna", {1, 2}, nodes), 0);
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[0].type, VANTRO_NODE_ALBUM);
    EXPECT_EQ(nodes[1].type, VANTRO_NODE_SONG);
}

TEST_F(Catalogued, KnowsEveryKey) {
    const std::string long_text(10 << 20, 'c');
    const fs::path file = music_ / "Full/f%20 \xC3\xA4.flac";
    struct Key {
        const char *key;
        std::string value;
        const char *tag = "";    // that it comes from
        std::string tagged = {}; // if that is not the value
    };
    const std::vector<Key> in_tags = {
        {"title", "T", "TITLE"},
        {"artist", "A", "ARTIST"},
        {"album", "B", "ALBUM"},
        {"album_artist", "AA", "ALBUMARTIST"},
        {"composer", "C", "COMPOSER"},
        {"conductor", "D", "CONDUCTOR"},
        {"genre", "G", "GENRE"},
        {"year", "12.05.1999", "DATE"},
        {"disc", "2", "DISCNUMBER"},
        {"disc_total", "3", "DISCTOTAL"},
        {"track", "4", "TRACKNUMBER", "4/5"},
        {"comment", long_text.substr(0, tag_text_max), "COMMENT", long_text},
        {"lyrics", long_text.substr(0, 64 * 1024), "LYRICS", long_text.substr(0, 100'000)},
        {"copyright", "(c)", "COPYRIGHT"},
        {"bpm", "120", "BPM"},
        {"compilation", "1", "COMPILATION"},
        {"replaygain_track_gain", "-6.20 dB", "REPLAYGAIN_TRACK_GAIN"},
        {"replaygain_track_peak", "0.9", "REPLAYGAIN_TRACK_PEAK"},
        {"replaygain_album_gain", "-6 dB", "REPLAYGAIN_ALBUM_GAIN"},
        {"replaygain_album_peak", "1.0", "REPLAYGAIN_ALBUM_PEAK"},
    };
    Values tags;
    for (const Key &each : in_tags) {
        tags.emplace_back(each.tag, each.tagged.empty() ? each.value : each.tagged);
    }
    add("Full/f%20 \xC3\xA4.flac", tags, png(30, 40));
    add("untagged.flac");
    open();
    const Node song = entry("songs", "T");
    const SongMetadata data = metadata(song.id);
    EXPECT_EQ(data.title + data.artist + data.album + data.genre + data.year, "TABG1999");
    EXPECT_EQ(data.disc, 2);
    EXPECT_EQ(data.track, 4);
    EXPECT_EQ(data.duration_ms, 400);
    EXPECT_EQ(data.width, 30);
    EXPECT_EQ(data.height, 40);

    std::vector<Key> all = {{"track_total", "5"},
                            {"duration", "400"},
                            {"sample_rate", "8000"},
                            {"channels", "1"},
                            {"codec", "flac"},
                            {"path", file.native()},
                            {"size", std::to_string(fs::file_size(file))},
                            {"artwork", data.artwork},
                            {"no such key", ""},
                            {"", ""},
                            {"\xFF '", ""}};
    all.insert(all.end(), in_tags.begin(), in_tags.end());
    std::vector<std::string_view> keys;
    std::vector<std::string> wanted;
    for (const Key &each : all) {
        keys.emplace_back(each.key);
        wanted.push_back(each.value);
    }
    EXPECT_EQ(extended(song.id, keys), wanted);
    EXPECT_EQ(extended(entry("songs", "untagged").id, {"artist", "artwork", "lyrics", "title"}),
              (Names{"", "", "", "untagged"}));
    EXPECT_EQ(extended(entry("albums", "B").id, {"title", "artist", "year"}),
              (Names{"B", "AA", "1999"}));
    EXPECT_EQ(extended("songs", {"title"}), Names{"Songs"});
    EXPECT_EQ(metadata(entry("albums", "B").id).artwork, data.artwork);
}

TEST_F(Catalogued, BoundsTheBytesOfItsValues) {
    add("1.flac", {{"TITLE", "T"}, {"LYRICS", std::string(64 * 1024, 'c')}});
    open();
    const std::vector<std::string_view> many(10'000, "lyrics");
    size_t bytes = 0;
    for (const std::string &value : extended(entry("songs", "T").id, many)) {
        bytes += value.size();
    }
    EXPECT_LE(bytes, extended_bytes_max);
    EXPECT_GT(bytes, extended_bytes_max / 2);
}

TEST_F(Catalogued, KeepsCoversOnce) {
    state_ = fs::path(path_) / "st ate\xC3\xA9";
    add("a/1.flac", {{"TITLE", "in file"}}, png(1, 1));
    add("a/2.flac", {{"TITLE", "of folder"}});
    add("b/3.flac", {{"TITLE", "same"}}, png(1, 1));
    add("c/4.flac", {{"TITLE", "none"}}, "GIF89a is no cover");
    test::write_file(music_ / "a/front.jpg", "not the best name");
    test::write_file(music_ / "a/Cover.PNG", png(2, 2));
    test::write_file(music_ / "c/folder.jpg", "no picture either");
    open();
    const auto artwork = [&](const char *title) {
        return metadata(entry("songs", title).id).artwork;
    };
    const auto files = [&] {
        return std::distance(fs::directory_iterator(state_ / "artwork"), fs::directory_iterator());
    };
    EXPECT_EQ(artwork("in file"), artwork("same"));
    EXPECT_EQ(artwork("none"), "");
    EXPECT_EQ(files(), 2);
    const std::string uri = artwork("of folder");
    EXPECT_EQ(uri.rfind("file://" + path_ + "/st%20ate%C3%A9/artwork/", 0), 0u) << uri;
    EXPECT_EQ(metadata(entry("songs", "of folder").id).width, 2);
    EXPECT_EQ(complaints().size(), 1u) << "the folder's image that is none";

    add("a/1.flac", {{"TITLE", "in file"}});
    fs::remove(music_ / "a/Cover.PNG");
    test::write_file(music_ / "a/front.jpg", png(3, 3));
    test::write_file(state_ / "artwork/mine.txt", "not ours to delete");
    scan();
    EXPECT_EQ(metadata(entry("songs", "of folder").id).width, 3);
    EXPECT_EQ(artwork("in file"), artwork("of folder"));
    EXPECT_EQ(files(), 3) << "the one that nobody has any more is gone";

    fs::rename(music_ / "a/front.jpg", music_ / "a/some picture.jpg");
    scan();
    EXPECT_EQ(metadata(entry("songs", "of folder").id).width, 3) << "the only one";
    test::write_file(music_ / "a/another.jpg", png(4, 4));
    scan();
    EXPECT_EQ(artwork("of folder"), "") << "neither of two";
}

TEST_F(Catalogued, HasPlaylists) {
    for (const char *name : {"x/1", "x/2", "y/3"}) {
        add(name + std::string(".flac"), {{"TITLE", name}});
    }
    test::write_file(music_ / "x/Mix 10.m3u",
                     "#EXTM3U\n2.flac\n1.flac\n../y/3.flac\n2.flac\ngone.flac\n"
                     "../../out.flac\nhttp://host/stream\n");
    test::write_file(music_ / "Mix 9.pls",
                     "[playlist]\nFile1=" + (music_ / "y/3.flac").native() + "\nFile2=x/1.flac\n");
    test::write_file(music_ / "empty.m3u8", "");
    test::write_file(music_ / "huge.m3u", std::string(5 << 20, '\n'));
    test::write_file(
        music_ / "Mix 11.xspf",
        "<?xml version='1.0'?><x:playlist xmlns:x='http://xspf.org/ns/0/'><x:trackList>"
        "<x:track><x:location>x/%31.flac</x:location><x:location>y/3.flac</x:location>"
        "</x:track><x:track><x:title>none</x:title></x:track><x:track><x:location>"
        " file://" +
            (music_ / "y/3.flac").native() +
            "\n</x:location></x:track>"
            "</x:trackList></x:playlist>");
    test::write_file(music_ / "bomb.xspf", "<!DOCTYPE p [<!ENTITY a 'x'><!ENTITY b '&a;&a;'>]>"
                                           "<playlist><trackList>&b;</trackList></playlist>");
    test::write_file(music_ / "cut.xspf", "<playlist><trackList><track><location>x");
    test::write_file(music_ / "other.xspf", "<html/>");
    open();
    EXPECT_EQ(names("playlists"), (Names{"empty", "Mix 9", "Mix 10", "Mix 11"}));
    EXPECT_EQ(played(entry("playlists", "Mix 11").id), (Names{"x/1", "y/3"}));
    const Node mix = entry("playlists", "Mix 10");
    EXPECT_EQ(mix.type, VANTRO_NODE_PLAYLIST);
    EXPECT_EQ(mix.count, 4);
    EXPECT_EQ(names(mix.id), (Names{"x/2", "x/1", "y/3", "x/2"}));
    EXPECT_EQ(played(entry("playlists", "Mix 9").id), (Names{"y/3", "x/1"}));
    EXPECT_EQ(played("playlists"), (Names{"y/3", "x/1", "x/2"}));
    EXPECT_EQ(complaints().size(), 7u);

    fs::remove(music_ / "x/2.flac");
    add("x/gone.flac", {{"TITLE", "come"}});
    fs::remove(music_ / "empty.m3u8");
    scan();
    EXPECT_EQ(names(mix.id), (Names{"x/1", "y/3", "come"}));
    EXPECT_EQ(entry("playlists", "Mix 10").count, 3);
    EXPECT_EQ(names("playlists"), (Names{"Mix 9", "Mix 10", "Mix 11"}));
    EXPECT_EQ(complaints(), Names{}) << "each is named once";
}

TEST_F(Catalogued, GivesSessionNumbersOnce) {
    open(false);
    EXPECT_EQ(store_->take_session_ids(10), 1);
    EXPECT_EQ(store_->take_session_ids(1), 11);
    EXPECT_EQ(store_->take_session_ids(0), 0);
    fs::remove(state_ / "catalogue.db");
    open(false);
    EXPECT_EQ(store_->take_session_ids(5), 12);
    EXPECT_EQ(store_->take_session_ids(INT32_MAX), 0);
    EXPECT_EQ(store_->take_session_ids(INT32_MAX - 16), 17);
    EXPECT_EQ(store_->take_session_ids(1), 0) << "they have run out";
}

} // namespace

} // namespace vantro::service::catalogue
