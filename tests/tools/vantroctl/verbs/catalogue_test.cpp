#include <algorithm>
#include <sstream>

#include "tests/tools/vantroctl/vantroctl_process.h"

namespace vantro::ctl {
namespace {

constexpr const char *kanji = "\xE6\xBC\xA2\xE5\xAD\x97";

class Catalogue : public Vantroctl {
  protected:
    void SetUp() override {
        Vantroctl::SetUp();
        music_ = path_ + "/music";
        test::make_music(music_ / "Far $HOME" / "1.flac", 100000,
                         {"TITLE=One", "ARTIST=Red", "ALBUM=The Way", "TRACKNUMBER=1"});
        test::make_music(music_ / "Far $HOME" / "2.ogg", 100000,
                         {std::string("TITLE=") + kanji, "ARTIST=Red", "ALBUM=The Way",
                          "TRACKNUMBER=2", "COMPOSER=Bach"});
        std::filesystem::create_directory(path_ + "/more");
    }

    // The node that the last list printed with this name.
    std::string node(const std::string &name) {
        std::istringstream lines(said_);
        for (std::string line; std::getline(lines, line);) {
            if (line.find('\t' + name + '\t') != line.npos) {
                return line.substr(0, line.find('\t'));
            }
        }
        ADD_FAILURE() << name << " is not in\n" << said_;
        return "1:nothing";
    }

    std::filesystem::path music_;
};

TEST_F(Catalogue, FromTheTopToASongThatPlays) {
    start_vantrod({"--music", music_});
    ASSERT_EQ(run({"sources"}), 0);
    EXPECT_EQ(said_.find("1:\tready\tdirectory\t"), 0u) << said_;
    EXPECT_EQ(run({"tracks"}), 6);
    EXPECT_EQ(said_, "vantroctl: no track session: load a node or play first\n");
    EXPECT_EQ(run({"jump", "1"}), 6) << said_;

    ASSERT_EQ(run({"browse"}), 0);
    ASSERT_EQ(run({"browse", node("Albums")}), 0);
    const std::string album = node("The Way");
    EXPECT_EQ(said_, album + "\talbum\t2\tThe Way\tRed\t\t\n");
    ASSERT_EQ(run({"browse", album.substr(2), "--source", "1", "--offset", "1"}), 0);
    const std::string song = node(kanji);
    EXPECT_EQ(said_, song + "\tsong\t0\t" + kanji + "\tRed\tThe Way\t1:40\n");

    ASSERT_EQ(run({"load", album, "--index", "2", "--play"}), 0);
    EXPECT_EQ(said_, "");
    ASSERT_EQ(run({"tracks", "--offset", "1"}), 0);
    EXPECT_EQ(said_, "*\t2\t" + song + "\t" + kanji + "\tRed\tThe Way\t1:40\n");
    EXPECT_EQ(run({"jump", "1"}), 0);
    EXPECT_EQ(said_, "1 of 2: One - Red - The Way (1:40)\n");
    for (int i = 0; i < 20; ++i) { // More sessions than a player keeps, so earlier ones are gone.
        ASSERT_EQ(run({"load", song}), 0) << said_;
    }
}

TEST_F(Catalogue, TracksAreSkippedPausedAndSought) {
    start_vantrod({"--music", music_});
    ASSERT_EQ(run({"load", "--search", "The Way", "--play"}), 0);
    EXPECT_EQ(run({"jump", "1", "--quiet"}), 0);
    EXPECT_EQ(run({"next", "--quiet"}), 0);
    EXPECT_EQ(said_, "");
    EXPECT_EQ(run({"next", "--json"}), 0);
    EXPECT_NE(said_.find("\"command\":\"next\",\"track\":{\"index\":"), said_.npos) << said_;
    ASSERT_EQ(run({"jump", "2", "-q"}), 0);
    ASSERT_EQ(run({"toggle"}), 0); // it had reached its end
    ASSERT_EQ(run({"toggle"}), 0);
    ASSERT_EQ(run({"seek", "50%"}), 0);
    ASSERT_EQ(run({"status"}), 0);
    EXPECT_NE(said_.find("state: paused\n"), said_.npos) << said_;
    EXPECT_NE(said_.find("position: 0:50\n"), said_.npos) << said_;
    ASSERT_EQ(run({"toggle"}), 0);
    EXPECT_EQ(run({"players"}), 0);
    EXPECT_EQ(said_.find("main\tp"), 0u) << said_;
    EXPECT_EQ(run({"players", "--json", "--player", "none"}), 0);
    EXPECT_EQ(said_.find("{\"ok\":true,\"command\":\"players\",\"players\":[{\"player\":\"main\""),
              0u);
    EXPECT_EQ(run({"jump", "3"}), 6);
    EXPECT_EQ(said_, "vantroctl: no track 3: the session has 2\n");
    ASSERT_EQ(run({"jump", "1", "--json"}), 0);
    EXPECT_EQ(said_.find("{\"ok\":true,\"player\":\"main\",\"command\":\"jump\",\"index\":0,"), 0u);
    ASSERT_EQ(run({"status"}), 0);
    EXPECT_NE(said_.find("state: playing\ntrack: 1\ntracks: 2\ntitle: One\n"), std::string::npos);
}

TEST_F(Catalogue, IsDescribedSearchedAndPrintedAsATree) {
    start_vantrod({"--music", music_});
    ASSERT_EQ(run({"browse", "1:albums"}), 0);
    const std::string album = node("The Way");
    ASSERT_EQ(run({"browse", "1:songs"}), 0);
    const std::string song = node(kanji);
    ASSERT_EQ(run({"info", song, "composer", "nothing", "title", "title"}), 0);
    EXPECT_EQ(said_, std::string("composer: Bach\nnothing:\ntitle: ") + kanji + "\n");
    ASSERT_EQ(run({"info", song}), 0);
    EXPECT_NE(said_.find("composer: Bach\n"), std::string::npos) << said_;
    EXPECT_NE(said_.find("duration: 100000\n"), std::string::npos) << said_;
    EXPECT_EQ(said_.find(":\n"), std::string::npos) << said_;
    EXPECT_EQ(run({"rescan", song}), 0);
    EXPECT_EQ(run({"rescan", "--source", "1"}), 0);
    EXPECT_EQ(run({"rescan", "--json"}), 0);
    EXPECT_EQ(said_, "{\"ok\":true,\"player\":\"main\",\"command\":\"rescan\"}\n");
    EXPECT_EQ(run({"info", "1:", "title"}), 0);
    EXPECT_EQ(said_, "title:\n");

    ASSERT_EQ(run({"search", kanji, "--title"}), 0);
    EXPECT_EQ(said_, song + "\tsong\t0\t" + kanji + "\tRed\tThe Way\t1:40\n");
    ASSERT_EQ(run({"search", "wa", "th", "--album"}), 0);
    EXPECT_EQ(said_, album + "\talbum\t2\tThe Way\tRed\t\t\n");
    EXPECT_EQ(run({"search", "\"play* OR (", "--json"}), 0);
    EXPECT_EQ(said_, "{\"ok\":true,\"player\":\"main\",\"command\":\"search\",\"nodes\":[]}\n");

    ASSERT_EQ(run({"browse", "--tree", "--depth", "4"}), 0);
    std::istringstream tree(said_);
    for (std::string line; std::getline(tree, line);) { // What is printed can be pasted.
        EXPECT_EQ(run({"browse", line.substr(line.find('\t') + 1)}), 0) << said_;
    }
    EXPECT_NE(tree.str().find("\n  Far $HOME (2)\t"), std::string::npos) << tree.str();
    ASSERT_EQ(run({"browse", "--tree", "--depth", "4", "--limit", "3"}), 0);
    EXPECT_EQ(std::count(said_.begin(), said_.end(), '\n'), 3);
}

TEST_F(Catalogue, TracksAreAddedMovedAndTakenAway) {
    start_vantrod({"--music", music_});
    ASSERT_EQ(run({"search", "one", "--title"}), 0);
    const std::string one = node("One");
    ASSERT_EQ(run({"search", kanji, "--title"}), 0);
    const std::string two = node(kanji);
    const struct {
        std::vector<std::string> arguments;
        const char *tracks; // 1 and 2, the current one with a star
        int code = 0;
    } rows[] = {
        {{"add", one}, "*1"}, // there was nothing
        {{"load", two, one, two, "--index", "2", "--play"}, "2*12"},
        {{"add", one, two}, "2*1212"},
        {{"insert", two}, "2*12212"},
        {{"remove", "1"}, "*12212"},
        {{"move", "1", "3"}, "22*112"},
        {{"move", "5", "1"}, "222*11"},
        {{"remove", "9"}, "222*11", 6},
        {{"load", two, two, one, two, two, "--index", "3", "--play"}, "22*122"},
        {{"mix"}, "*12222"}, // the current track continues, and no track is skipped
        {{"load", two, two, two, one, one, "--index", "4", "--play"}, "222*11"},
        {{"remove", "4", "1-2"}, "2*1"}, // the next one goes on
        {{"remove", "2"}, "*2"},         // there is none: it stops
        {{"clear"}, ""},
        {{"clear"}, ""},
        {{"load", one}, "*1"},
        {{"remove", "1"}, ""},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(run(row.arguments), row.code) << said_;
        const std::string name = row.arguments.front() + " " + row.tracks;
        std::string tracks;
        if (run({"tracks"}) == 0) {
            std::istringstream lines(said_);
            for (std::string line; std::getline(lines, line);) {
                tracks += line[0] == '*' ? "*" : "";
                tracks += line.find(one) != line.npos ? '1' : '2';
            }
        }
        EXPECT_EQ(tracks, row.tracks) << name;
        ASSERT_EQ(run({"status"}), 0);
        const bool playing = std::string(row.tracks).size() > 2;
        EXPECT_EQ(said_.find("state: playing") != said_.npos, playing) << name << said_;
    }
}

TEST_F(Catalogue, NodesComeFromAListing) {
    start_vantrod({"--music", music_});
    const auto load = [&](const std::string &lines) {
        test::write_file(path_ + "/lines", lines);
        test::Process tool({VANTROCTL, "load", "-"},
                           [&] { dup2(open((path_ + "/lines").c_str(), O_RDONLY), STDIN_FILENO); });
        said_ = tool.rest();
        return tool.wait();
    };
    ASSERT_EQ(run({"browse", "1:songs"}), 0);
    const std::string songs = said_;
    ASSERT_EQ(load(songs + "\n" + songs), 0) << said_;
    ASSERT_EQ(run({"tracks"}), 0);
    const std::string tracks = said_;
    EXPECT_EQ(std::count(tracks.begin(), tracks.end(), '\n'),
              2 * std::count(songs.begin(), songs.end(), '\n'));
    ASSERT_EQ(load(tracks), 0) << said_; // the node is not the first column there
    ASSERT_EQ(run({"tracks"}), 0);
    EXPECT_EQ(said_, tracks);
    EXPECT_EQ(load("\n\n"), 6);
    EXPECT_EQ(said_, "vantroctl: standard input names no node\n");
    EXPECT_EQ(load("1:nothing\n"), 6);
    ASSERT_EQ(run({"tracks"}), 0);
    EXPECT_EQ(said_, tracks) << "what was there stays";
}

TEST_F(Catalogue, SaysWhatDoesNotExist) {
    start_vantrod({"--music", music_, "--music", path_ + "/more"});
    const struct {
        std::vector<std::string> arguments;
        int code;
        const char *error;
    } rows[] = {
        {{"browse", "1:nothing"}, 6, "no node 1:nothing in source 1"},
        {{"browse", "1:" + std::string(100000, 'x')}, 6, "no node 1:xxxx"},
        {{"browse", "7:"}, 6, "no source 7"},
        {{"browse", "--source", "7"}, 6, "no source 7"},
        {{"search", "x", "--source", "7"}, 6, "no source 7"},
        {{"load", "1:nothing"}, 6, "no node 1:nothing in source 1"},
        {{"info", "1:nothing"}, 6, "no node 1:nothing in source 1"},
        {{"info", "1:nothing", "title"}, 6, "no node 1:nothing in source 1"},
        {{"info", "7:"}, 6, "no source 7"},
        {{"rescan", "1:nothing"}, 6, "no node 1:nothing in source 1"},
        {{"rescan", "--source", "7"}, 6, "no source 7"},
        {{"rescan", ""}, 2, "an empty NODE"},
        {{"load", "1:", "--index", "3"}, 6, "no song 3: there are fewer in 1:"},
        {{"load", "2:"}, 6, "no songs in 2:"},
        {{"load", "2:", "2:"}, 6, "no songs in any of them"},
        {{"load", "1:", "2:", "--index", "3"}, 6, "no song 3: there are fewer in them"},
        {{"add", "1:", "1:nothing"}, 6, "no node 1:nothing in source 1"},
        {{"insert", "1:", "7:"}, 6, "no source 7"},
        {{"load", "--search", "no", "such"}, 6, "no song contains \"no such\""},
        {{"add", "x", "--search", "--source", "7"}, 6, "no source 7"},
        {{"add"}, 2, "NODE is required"},
        {{"remove", "1"}, 6, "no track session"},
        {{"remove", "0"}, 2, "N[-M]: write tracks as 3 or 3-7"},
        {{"remove", "3-2"}, 2, "N[-M]: write tracks as 3 or 3-7"},
        {{"move", "1"}, 2, "M is required"},
        {{"load", ""}, 2, "an empty NODE"},
        {{"load", "", "--source", "1"}, 2, "an empty NODE"},
        {{"browse", ""}, 2, "an empty NODE"},
        {{"info", ""}, 2, "an empty NODE"},
        {{"load", "nothing"}, 2, "of which of the 2 sources?"},
        {{"load", "1:", "--source", "2"}, 2, "1: is not of source 2"},
        {{"browse", "--offset", "1"}, 2, "--offset counts within one source"},
        {{"search", "x", "--album", "--title"}, 2, "--album and --title"},
        {{"search"}, 2, "TERM is required"},
        {{"jump", "0"}, 2, "N: a whole number from 1 on"},
        {{"jump", "010"}, 2, "N: a whole number from 1 on"},
        {{"browse", "1:albums%00junk"}, 6, "no node 1:albums%2500junk"},
        {{"load", "1:", "--index", "x"}, 2, "--index: a whole number"},
        {{"browse", "--depth", "2"}, 2, "--depth requires --tree"},
        {{"browse", "--tree", "--depth", "65"}, 2, "--depth: a whole number from 1 to 64"},
        {{"browse", "--limit", "0"}, 2, "--limit: a whole number"},
        {{"browse", "--source", "1:x"}, 2, "--source: a source is a number"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(run(row.arguments), row.code) << said_;
        EXPECT_EQ(said_.find(std::string("vantroctl: ") + row.error), 0u) << said_;
        EXPECT_LT(said_.size(), 250u);
    }
    EXPECT_EQ(run({"browse", "2:nothing", "--json"}), 6);
    EXPECT_NE(said_.find("\n{\"ok\":false,\"error\":\"no node 2:nothing"), std::string::npos);
    ASSERT_EQ(run({"load", "--search", "One"}), 0);
    EXPECT_EQ(said_, "1 song\n");
    ASSERT_EQ(run({"add", "One", "--search", "--json"}), 0);
    EXPECT_NE(said_.find("\"songs\":1"), std::string::npos) << said_;
    ASSERT_EQ(run({"search", "One", "play"}), 0); // a word that is also a command
    ASSERT_EQ(run({"browse"}), 0);
    EXPECT_EQ(said_.find("1:"), 0u) << said_;
    EXPECT_NE(said_.find("\n2:"), std::string::npos) << said_;
}

TEST_F(Catalogue, SaysWhyNothingPlays) {
    const std::filesystem::path root = path_ + "/root";
    test::make_music(root / "stick" / "3.flac", 100000, {"TITLE=Three"});
    start_vantrod({"--music", music_, "--media-root", root});
    ASSERT_EQ(run({"search", "Three"}), 0);
    const std::string three = node("Three");
    ASSERT_EQ(run({"search", "One", "--title"}), 0);
    const std::string one = node("One");
    ASSERT_EQ(run({"load", three, one, three}), 0);
    std::filesystem::rename(root / "stick", path_ + "/away");
    do {
        ASSERT_EQ(run({"sources"}), 0);
    } while (said_.find("removable") != said_.npos);
    EXPECT_EQ(run({"play"}), 0) << said_; // the second track
    ASSERT_EQ(run({"status"}), 0);
    EXPECT_NE(said_.find("state: playing\ntrack: 2\n"), said_.npos) << said_;
    const std::vector<std::string> rows[] = {{"play", "3"}, {"play", "--json"}, {"toggle"}};
    for (const auto &row : rows) {
        ASSERT_EQ(run({"jump", "3", "--quiet"}), 0);
        ASSERT_EQ(run({"stop"}), 0);
        ASSERT_EQ(run({"jump", "3", "--quiet"}), 0);
        EXPECT_EQ(run(row), 6);
        EXPECT_EQ(said_.find("vantroctl: nothing plays: the file does not exist any more; is its "),
                  0u)
            << said_;
    }
    end_vantrod();

    start_vantrod({"--music", music_, "--audio", "mpv", "--audio-device",
                   "pcm/" + path_ + "/nowhere/out.wav"});
    const std::vector<std::string> more_rows[] = {{"load", one, "--play"}, {"play"}, {"play", "1"}};
    for (const auto &row : more_rows) {
        EXPECT_EQ(run(row), 1);
        EXPECT_EQ(said_.find("vantroctl: nothing plays: the audio output cannot be used; "), 0u)
            << said_;
    }
}

TEST_F(Catalogue, FitsTheTerminalAndPagesWhatDoesNot) {
    for (int i = 1; i <= 30; ++i) {
        std::filesystem::copy_file(music_ / "Far $HOME" / "2.ogg",
                                   music_ / std::to_string(i).append(".ogg"));
    }
    start_vantrod({"--music", music_});
    ASSERT_EQ(run({"browse"}), 0);
    const std::string songs = node("Songs");
    setenv("PAGER", "sed 's/^/> /'", 1);
    ASSERT_EQ(on_terminal(60, {"browse", songs}), 0);
    EXPECT_EQ(said_.find("> NODE"), 0u) << said_;
    EXPECT_EQ(std::count(said_.begin(), said_.end(), '>'), 33) << said_;
    ASSERT_EQ(on_terminal(60, {"browse", songs, "--limit", "20"}), 0);
    EXPECT_EQ(said_.find("NODE"), 0u) << said_;
    ASSERT_EQ(on_terminal(60, {"browse", songs, "--no-pager"}), 0);
    EXPECT_EQ(std::count(said_.begin(), said_.end(), '\n'), 33) << said_;
    ASSERT_EQ(on_terminal(60, {"search", "zzz"}), 0);
    EXPECT_EQ(said_, "nothing found\n");
    setenv("PAGER", "exit 0", 1); // a reader that ends at once
    EXPECT_EQ(on_terminal(60, {"browse", songs}), 0);
    setenv("PAGER", "/nowhere/less", 1);
    EXPECT_EQ(on_terminal(60, {"browse", songs}), 1);
    unsetenv("PAGER");
}

} // namespace
} // namespace vantro::ctl
