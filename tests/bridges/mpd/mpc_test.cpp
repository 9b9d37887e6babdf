// vantro-mpd with mpc as client: every command of mpc, and its output.
#include "tests/bridges/mpd/bridge_process.h"

#include <set>
#include <span>
#include <sstream>

namespace vantro::mpd {
namespace {

constexpr const char *one = "music/Red/Way \"1\"/1.flac";
constexpr const char *two = "music/Red/Way \"1\"/2.ogg";

std::string lines(const std::vector<std::string> &all) {
    std::string text;
    for (const std::string &each : all) {
        text += each + '\n';
    }
    return text;
}

struct Row {
    std::vector<std::string> words;
    std::string says; // All of it; after "...", a part of it.
};

class Mpc : public Bridge {
  protected:
    void SetUp() override {
        if (access(MPC, X_OK) != 0) {
            GTEST_SKIP() << "mpc is not installed";
        }
        Bridge::SetUp();
    }
    void TearDown() override {
        if (!IsSkipped()) {
            Bridge::TearDown();
        }
    }

    void check(std::span<const Row> rows) {
        for (const Row &row : rows) {
            driven_.insert(row.words[0]);
            const std::string said = mpc(row.words);
            SCOPED_TRACE(row.words[0] + (row.words.size() > 1 ? ' ' + row.words[1] : ""));
            if (row.says.starts_with("...")) {
                EXPECT_NE(said.find(row.says.substr(3)), std::string::npos) << said;
            } else {
                EXPECT_EQ(said, row.says);
            }
        }
    }

    // Starts a command that waits. @return its first lines, after `cause` has made it continue.
    template <typename Cause>
    std::vector<std::string> lines_of(std::vector<std::string> words, size_t count,
                                      const Cause &cause) {
        driven_.insert(words[0]);
        words.insert(words.begin(), MPC);
        test::Process tool(words);
        std::vector<std::string> said;
        while (said.size() < count) {
            while (!tool.readable(20)) {
                cause();
            }
            said.push_back(tool.line());
        }
        return said;
    }

    void check_queue();
    void check_catalogue();
    void check_refusals();
    void check_waiting();

    std::set<std::string> driven_;
    const std::string idle_ =
        "volume:100%   repeat: off   random: off   single: off   consume: off\n";
};

void Mpc::check_queue() {
    const Row rows[] = {
        {{"status"}, idle_},
        {{"version"}, "mpd version: 0.23.5\n"},
        {{"add", "music"}, ""},
        {{"status"}, idle_},
        {{"playlist", "-f", "%position% %id% %file% [%artist%]"},
         lines({std::string("1 1 ") + one + " Red", std::string("2 2 ") + two + " Red",
                "3 3 music/loose.flac Blue"})},
        {{"play", "2"}, "...[playing] #2/3   0:00/1:00"},
        {{"queued"}, "Blue - Loose\n"},
        {{"pause"}, "...[paused]  #2/3"},
        {{"pause-if-playing"}, ""},
        {{"seek", "+30"}, "...#2/3   0:30/1:00 (50%)"},
        {{"seek", "-10"}, "...#2/3   0:20/1:00"},
        {{"cdprev"}, "...#2/3   0:00/1:00"},
        {{"seekthrough", "+0:10"}, "...[paused]  #2/3   0:10/1:00"},
        {{"next"}, "..."},
        {{"volume", "-40"}, "...volume: 60%"},
        {{"prev"}, "...[paused]  #2/3"},
        {{"next"}, "...Blue - Loose\n[paused]  #3/3   0:00/0:30"},
        {{"prev"}, "...[paused]  #2/3"},
        {{"move", "1", "3"}, ""},
        {{"current"}, "Red - Zw\xC3\x96lf\n"},
        {{"playlist", "-f", "%id%"}, "2\n3\n1\n"},
        {{"del", "1"}, ""},
        {{"current"}, "Blue - Loose\n"},
        {{"insert", one}, ""},
        {{"playlist", "-f", "%id% %title%"}, "3 Loose\n4 One\n1 One\n"},
        {{"searchplay", "one"}, "...Red - One\n[playing] #2/3"},
        {{"toggle"}, "...[paused]  #2/3"},
        {{"play", "1"}, "...[playing] #1/3"},
        {{"stop"}, "volume: 60%   repeat: off   random: off   single: off   consume: off\n"},
        {{"repeat", "on"}, "...repeat: on "},
        {{"single", "on"}, "...repeat: on    random: off   single: on "},
        {{"random", "on"}, "...random: on "},
        {{"consume", "off"}, "...consume: off"},
        {{"shuffle"}, "...random: on "},
        {{"crop"}, "You need to be playing to crop the playlist\n"},
        {{"play"}, "...[playing] #"},
        {{"crop"}, ""},
        {{"status"}, "...#1/1 "},
        {{"clear"}, "...repeat: on "},
    };
    check(rows);
}

void Mpc::check_catalogue() {
    const Row rows[] = {
        {{"ls"}, "music\nmix\n"},
        {{"ls", "music"}, "music/Red\nmusic/loose.flac\n"},
        {{"listall"}, lines({one, two, "music/loose.flac"})},
        {{"load", "mix"}, "loading: mix\n"},
        {{"playlist"}, "Blue - Loose\nRed - One\n"},
        {{"list", "album"}, "\nThe Way\n"},
        {{"list", "title", "artist", "Red"}, "One\nZw\xC3\x96lf\n"},
        {{"search", "title", "zw\xC3\xB6"}, lines({two})},
        {{"search", "title", "o"}, lines({one, "music/loose.flac"})}, // as directories have them
        {{"find", "title", "zw\xC3\xB6lf"}, ""},
        {{"find", "artist", "Red", "title", "One"}, lines({one})},
        {{"find", "(title =~ '^Zw')"}, lines({two})},
        {{"findadd", "(composer == \"Bach\")"}, ""},
        {{"playlist"}, "Blue - Loose\nRed - One\nRed - Zw\xC3\x96lf\n"},
        {{"searchadd", "title", "ONE"}, ""},
        {{"playlist"}, "Blue - Loose\nRed - One\nRed - Zw\xC3\x96lf\nRed - One\n"},
        {{"del", "4"}, ""},
        {{"save", "a b"}, ""},
        {{"save", "a b"}, "...there is a playlist \"a b\""},
        {{"save", "../a"}, "...cannot name a playlist"},
        {{"lsplaylists"}, "a b\nmix\n"},
        {{"playlist", "a b"}, "Blue - Loose\nRed - One\nRed - Zw\xC3\x96lf\n"},
        {{"clear", "-q"}, ""},
        {{"load", "a b"}, "loading: a b\n"},
        {{"playlist"}, "Blue - Loose\nRed - One\nRed - Zw\xC3\x96lf\n"},
        {{"rm", "a b"}, ""},
        {{"lsplaylists"}, "mix\n"},
        {{"rm", "mix"}, "...no saved playlist: \"mix\""},
        {{"add", "music/none"}, "...no such song or directory: \"music/none\""},
        {{"add", "../music"}, "...no such song or directory: \"../music\""},
        {{"stats"}, "...Songs:        3\n"},
        {{"update"}, "...volume:"},
        {{"update", one}, "...volume:"},
        {{"update", "music/new/folder"}, "...volume:"}, // one above it is known
        {{"update", "none"}, "...no such song or directory: \"none\""},
        {{"rescan"}, "...volume:"},
        {{"update", "--wait"}, "...volume:"},
        {{"albumart", "music/loose.flac"}, cover_},
        {{"readpicture", one}, "...No data"},
        {{"albumart", one}, "...there is no cover"},
        {{"mount"}, "...music"},
    };
    check(rows);
}

void Mpc::check_refusals() {
    const Row rows[] = {
        {{"disable", "1"}, "Output 1 (main) is disabled\n"},
        {{"outputs"}, "Output 1 (main) is disabled\n"},
        {{"toggleoutput", "1"}, "Output 1 (main) is enabled\n"},
        {{"enable", "only", "main"}, "Output 1 (main) is enabled\n"},
        {{"outputset", "1", "a=b"}, "...the output has no attributes"},
        {{"prio", "1", "1"}, "...the player's queue has no priorities"},
        {{"crossfade"}, "crossfade: 0\n"},
        {{"crossfade", "3"}, "...the player cannot fade from song to song"},
        {{"mixrampdb", "3"}, "...the player cannot fade from song to song"},
        {{"mixrampdelay", "3"}, "...the player cannot fade from song to song"},
        {{"clearerror"}, "...volume:"},
        {{"sticker", "music/loose.flac", "get", "rating"}, "...the service stores no data"},
        {{"replaygain"}, "...ReplayGain is an option of the service"},
        {{"listneighbors"}, ""},
        {{"mount", "a", "nfs://b/c"}, "...are set in the service's configuration"},
        {{"unmount", "a"}, "...are set in the service's configuration"},
        {{"channels"}, ""},
        {{"sendmessage", "news", "x"}, "...no client is subscribed to this channel"},
    };
    check(rows);
}

void Mpc::check_waiting() {
    int level = 0;
    const auto change_volume = [&] { mpc({"volume", std::to_string(++level % 100)}); };
    EXPECT_EQ(lines_of({"idle", "mixer"}, 1, change_volume), std::vector<std::string>{"mixer"});
    EXPECT_EQ(lines_of({"idleloop", "mixer"}, 2, change_volume),
              (std::vector<std::string>{"mixer", "mixer"}));
    const auto send = [] { mpc({"sendmessage", "news", "a b"}); };
    EXPECT_EQ(lines_of({"waitmessage", "news"}, 1, send), std::vector<std::string>{"a b"});
    EXPECT_EQ(lines_of({"subscribe", "news"}, 2, send), (std::vector<std::string>{"a b", "a b"}));
}

TEST_F(Mpc, DrivesThePlayerByEachOfItsCommands) {
    check_queue();
    check_catalogue();
    check_refusals();
    check_waiting();
    // Lines such as "  mpc add <uri>    Add a song to the queue".
    std::istringstream help(mpc({"help"}));
    size_t commands = 0;
    for (std::string line; std::getline(help, line);) {
        std::istringstream text(line);
        std::string program, command;
        if (line.starts_with("  mpc ") && text >> program >> command && command != "Display") {
            ++commands;
            EXPECT_TRUE(driven_.contains(command)) << command;
        }
    }
    EXPECT_GT(commands, 50u);
}

} // namespace
} // namespace vantro::mpd
