#include <iterator>

#include <termios.h>

#include <rapidjson/document.h>

#include "tests/tools/vantroctl/vantroctl_process.h"

namespace vantro::ctl {
namespace {

class Watch : public Vantroctl {
  protected:
    void SetUp() override {
        Vantroctl::SetUp();
        test::make_music(path_ + "/music/1.flac", 100000, {"TITLE=One\x1B[31m", "ARTIST=Red"});
        test::make_music(path_ + "/music/2.ogg", 100000, {"TITLE=Two"});
    }
    void start() { start_vantrod({"--music", path_ + "/music"}); }

    // The next line without time and player. Position events are skipped unless asked for.
    static std::string next(test::Process &watch, bool position = false) {
        std::string line;
        do {
            line = watch.line();
            line.erase(0, line.find("\tmain\t") + 6);
        } while (!position && line.find("position\t") == 0);
        return line;
    }
    static void expect_picture(test::Process &watch,
                               const std::vector<std::string> &lines = {
                                   "state\tidle, rate 1, repeat off, shuffle off", "session\tnone",
                                   "track\tnone", "position\t0:00"}) {
        for (const std::string &line : lines) {
            EXPECT_EQ(next(watch, true), line);
        }
        EXPECT_EQ(next(watch).find("source\t1: music, "), 0u); // It may be scanned again.
    }
    static rapidjson::Document next_object(test::Process &watch) {
        rapidjson::Document object;
        const std::string line = watch.line();
        EXPECT_FALSE(object.Parse(line.c_str()).HasParseError()) << line;
        EXPECT_EQ(line.find("{\"ok\":true,\"player\":\"main\",\"command\":\"watch\",\"event\":"),
                  0u);
        return object;
    }
};

// The tool on a terminal of its own.
class Screen {
  public:
    Screen() {
        winsize size = {24, 40, 0, 0};
        EXPECT_EQ(openpty(&master_, &slave_, nullptr, nullptr, &size), 0);
        tcgetattr(slave_, &before_);
        tool_ = std::make_unique<test::Process>(
            std::vector<std::string>{VANTROCTL, "watch", "--live"}, [this] {
                setenv("TERM", "xterm", 1);
                dup2(slave_, STDIN_FILENO);
                dup2(slave_, STDOUT_FILENO);
            });
    }
    ~Screen() {
        close(master_);
        close(slave_);
    }

    // Reads until this has appeared; what came before is forgotten.
    void until(const std::string &text) {
        std::string said;
        for (char byte; !said.ends_with(text); said += byte) {
            ASSERT_EQ(read(master_, &byte, 1), 1) << said;
        }
    }
    void press(char key) { EXPECT_EQ(write(master_, &key, 1), 1); }

    // Returns when the terminal is restored. @return the exit code.
    int end() {
        until("\x1B[?25h\x1B[?1049l");
        const int code = tool_->wait();
        termios after;
        tcgetattr(slave_, &after);
        EXPECT_EQ(after.c_lflag, before_.c_lflag);
        return code;
    }

    void kill(int number) { tool_->kill(number); }
    void resize(unsigned short rows, unsigned short columns) {
        winsize size = {rows, columns, 0, 0};
        ioctl(master_, TIOCSWINSZ, &size);
        kill(SIGWINCH);
    }

  private:
    int master_ = -1;
    int slave_ = -1;
    termios before_;
    std::unique_ptr<test::Process> tool_;
};

TEST_F(Watch, TellsEachEventAsALineAndGoesOnAfterARestart) {
    start();
    test::Process watch({VANTROCTL, "watch"});
    expect_picture(watch);
    const struct {
        std::vector<std::string> command, events;
    } rows[] = {
        {{"play"},
         {"state\tplaying", "session\t2 tracks",
          "track\t1 of 2: One\xEF\xBF\xBD[31m - Red (1:40)"}},
        {{"rate", "1.5"}, {"state\trate 1.5"}},
        {{"next"}, {"track\t2 of 2: Two (1:40)"}},
        {{"pause"}, {"state\tpaused"}},
        {{"repeat", "one"}, {"state\trepeat one"}},
        {{"shuffle", "on"}, {"state\tshuffle on"}},
    };
    for (const auto &row : rows) {
        ASSERT_EQ(run(row.command), 0) << said_;
        for (const std::string &event : row.events) {
            EXPECT_EQ(next(watch), event);
        }
    }
    ASSERT_EQ(run({"seek", "1:10"}), 0);
    std::string line = next(watch, true);
    while (line.find("position\t0:") == 0) { // It has played meanwhile.
        line = next(watch, true);
    }
    EXPECT_EQ(line, "position\t1:10 of 1:40");
    end_vantrod();
    EXPECT_EQ(next(watch), "state\tnone");
    EXPECT_EQ(next(watch), "gone\tthe service is gone; waiting for it");
    start();
    EXPECT_EQ(next(watch), "back\tthe service is back");
    expect_picture(watch, {"state\tpaused, rate 1.5, repeat one, shuffle on", "session\t2 tracks",
                           "track\t2 of 2: Two (1:40)", "position\t1:10 of 1:40"});
    watch.kill(SIGTERM);
    EXPECT_EQ(watch.wait(), -SIGTERM);
}

TEST_F(Watch, TellsEachEventAsAnObject) {
    start();
    test::Process watch({VANTROCTL, "watch", "--json"});
    for (const char *event : {"state", "session", "track", "position", "source"}) {
        const rapidjson::Document object = next_object(watch);
        EXPECT_STREQ(object["event"].GetString(), event);
        EXPECT_TRUE(object["initial"].IsTrue());
    }
    ASSERT_EQ(run({"play"}), 0);
    const rapidjson::Document state = next_object(watch);
    EXPECT_STREQ(state["state"].GetString(), "playing");
    EXPECT_STREQ(state["previous"]["state"].GetString(), "idle");
    EXPECT_EQ(next_object(watch)["session"]["length"].GetInt(), 2);
    EXPECT_STREQ(next_object(watch)["track"]["title"].GetString(), "One\x1B[31m");
    EXPECT_EQ(next_object(watch)["position_ms"].GetInt(), 0);
}

TEST_F(Watch, FollowsAllPlayersInOneThreadOverRestarts) {
    const auto start_two = [this] {
        start_vantrod({"--music", path_ + "/music", "--player", "main", "--player", "den"});
    };
    start_two();
    test::Process watch({VANTROCTL, "watch", "--player", "main", "--player", "den", "--format",
                         "{{player}} {{event}} {{title}}"});
    for (int round = 0; round < 3; ++round) {
        for (const std::string player : {"main", "den"}) {
            ASSERT_EQ(run({"clear", "--player", player}), 0) << said_;
            ASSERT_EQ(run({"play", "--player", player}), 0) << said_;
            std::string line = watch.line();
            while (line.find(player + " track One") != 0) {
                ASSERT_FALSE(line.empty());
                line = watch.line();
            }
        }
        const std::string tasks = "/proc/" + std::to_string(watch.id()) + "/task";
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(tasks), {}), 1);
        end_vantrod();
        start_two();
    }
}

TEST_F(Watch, EndsWhereItCannotGoOn) {
    EXPECT_EQ(run({"watch"}), 3);
    start();
    EXPECT_EQ(run({"watch", "--player", "main", "--player", "den"}), 3);
    EXPECT_EQ(said_.find("vantroctl: no player \"den\""), 0u) << said_;
    for (const auto &words :
         std::vector<std::vector<std::string>>{{"watch", "--live"},
                                               {"watch", "--live", "--json"},
                                               {"play", "--player", "x", "--player", "y"}}) {
        EXPECT_EQ(run(words), 2) << said_;
    }
    EXPECT_EQ(run({"watch"}, [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); }), 1);
    EXPECT_EQ(said_.find("vantroctl: cannot write"), 0u) << said_;
    // The reader ends, and nothing happens after that which would be written.
    const std::string left = "timeout 20 " VANTROCTL " watch | head -n 5; echo ${PIPESTATUS[0]}";
    test::Process pipe({"/bin/bash", "-c", left});
    EXPECT_TRUE(pipe.rest().ends_with("ready\n0\n"));
}

TEST_F(Watch, DrawsAScreenAndGivesTheTerminalBack) {
    const std::string stick = path_ + "/root/stick";
    test::make_music(stick + "/3.flac", 1'000, {"TITLE=Three"});
    start_vantrod({"--music", path_ + "/music", "--media-root", path_ + "/root"});
    test::Process lines({VANTROCTL, "watch"});
    Screen screen;
    screen.until("\x1B[?1049h");
    screen.until("main: idle");
    screen.until("sources: music ready, stick ready\x1B[");
    std::filesystem::rename(stick, path_ + "/stick");
    screen.until("sources: music ready\x1B[");
    for (std::string line; line != "source\t2: stick, gone"; line = next(lines)) {
        ASSERT_FALSE(lines.ended());
    }
    ASSERT_EQ(run({"play"}), 0);
    screen.until("main: playing, track 1 of 2");
    screen.until("-] 1:40");
    screen.resize(2, 20);
    screen.until("main: playing, trac\xE2\x80\xA6");
    screen.press('x');
    screen.press('q');
    EXPECT_EQ(screen.end(), 0);
    Screen other;
    other.until("main: playing");
    end_vantrod();
    other.until("main: the service is gone");
    other.kill(SIGINT);
    EXPECT_EQ(other.end(), -SIGINT);
}

} // namespace
} // namespace vantro::ctl
