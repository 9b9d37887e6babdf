#include "service/catalogue/scanner.h"

#include <algorithm>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "service/catalogue/text.h"
#include "service/music.h"
#include "tools/process.h"

namespace vantro {

namespace {

namespace fs = std::filesystem;

TEST(Text, IsMadeValidAndShort) {
    const std::string bad = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> table[] = {
        {"plain \xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E",
         "plain \xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E"},
        {"latin \xE9!", "latin " + bad + "!"},
        {"\xC0\xAF", bad + bad},                     // overlong
        {"\xED\xA0\x80", bad + bad + bad},           // half of a surrogate pair
        {"\xF4\x90\x80\x80", bad + bad + bad + bad}, // beyond the last character
        {"cut \xE2\x82", "cut " + bad + bad},
        {std::string("nul\0x", 5), "nul"},
    };
    for (const auto &[text, clean] : table)
        EXPECT_EQ(clean_text(text, 100), clean) << text;
    EXPECT_EQ(clean_text("ab\xE2\x82\xAC", 4), "ab") << "never half a character";
    EXPECT_EQ(clean_text("ab\xFF", 4), "ab");
}

TEST(Text, OrdersNaturally) {
    const std::vector<std::string> ordered = {
        "", "1", "2", "002a", "10", "a", "A1x", "a2", "A10", "a99999999999999999999", "b01", "b1"};
    for (std::size_t i = 0; i < ordered.size(); ++i)
        for (std::size_t j = 0; j < ordered.size(); ++j) {
            const int order = natural_compare(ordered[i], ordered[j]);
            EXPECT_EQ(order < 0, i < j) << ordered[i] << " and " << ordered[j];
            EXPECT_EQ(order == 0, i == j) << ordered[i] << " and " << ordered[j];
        }
}

class Scanning : public RuntimeDirectory {};

TEST_F(Scanning, ReadsWhatPlaysAndNamesTheRest) {
    const fs::path top = path_;
    make_music(top / "z last.flac", 250);
    make_music(top / "disc 10/a.flac", 300, {"DISCNUMBER=2/2", "TRACKNUMBER=1"});
    make_music(top / "disc 10/c.ogg", 1500,
               {"TRACKNUMBER=2", "TITLE=A title", "ARTIST=Some", "ALBUM=Whole", "GENRE=Folk",
                "DATE=1999-05-01"});
    make_music(top / "disc 10/b.flac", 300, {"TRACKNUMBER=10"});
    make_music(top / "disc 10/9.flac", 300);
    make_music(top / "disc 10/10.flac", 300);
    make_music(top / "disc 9/\xE9.FLAC", 300, {"TITLE=" + std::string(20'000, 't')});
    fs::rename(top / "disc 10/9.flac", top / "disc 10/9.mp3"); // told by its content

    fs::create_directory(top / "folder.mp3");
    fs::create_directory_symlink("..", top / "disc 9/round");
    fs::create_symlink("nowhere", top / "dangling.ogg");
    mkfifo((top / "pipe.mp3").c_str(), 0600);
    write_file(top / "cover.jpg", "no business of ours");
    for (const char *ending : {"flac", "ogg", "opus", "mp3", "m4a", "wav"}) {
        write_file(top / fmt::format("empty.{}", ending), "");
        write_file(top / fmt::format("noise.{}", ending), std::string(5'000, 'Z') + "fLaCOggS");
    }
    write_file(top / "half.flac", std::string("fLaC\x00\x00\x00\x22\xFF\xFF", 10));

    std::vector<std::string> left_out;
    const std::atomic<bool> stop = false;
    Scanner scanner([&](const std::string &line) { left_out.push_back(line); }, stop);
    std::vector<Track> tracks;
    scanner.read(top, 3, tracks);

    std::vector<std::string> ids;
    for (const Track &track : tracks)
        ids.push_back(track.id);
    EXPECT_EQ(ids,
              (std::vector<std::string>{"3/z last.flac", "3/disc 9/\xEF\xBF\xBD.FLAC",
                                        "3/disc 10/c.ogg", "3/disc 10/b.flac", "3/disc 10/9.mp3",
                                        "3/disc 10/10.flac", "3/disc 10/a.flac"}));
    ASSERT_EQ(tracks.size(), 7u);
    EXPECT_EQ(tracks[0].title, "z last") << "the name stands in for a title";
    EXPECT_EQ(tracks[0].duration_ms, 250);
    EXPECT_EQ(tracks[1].title.size(), tag_text_max);
    const Track &full = tracks[2];
    EXPECT_EQ(full.title + full.artist + full.album + full.genre + full.year,
              "A titleSomeWholeFolk1999");
    EXPECT_EQ(full.number, 2);
    EXPECT_EQ(full.duration_ms, 1500);
    EXPECT_EQ(tracks[6].disc, 2);

    std::sort(left_out.begin(), left_out.end());
    EXPECT_EQ(std::unique(left_out.begin(), left_out.end()), left_out.end()) << "each once";
    EXPECT_EQ(left_out.size(), 15u) << testing::PrintToString(left_out);
}

} // namespace

} // namespace vantro
