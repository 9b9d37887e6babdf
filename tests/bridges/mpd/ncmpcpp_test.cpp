// vantro-mpd with ncmpcpp as client: the test presses keys, reads the screen, checks the player.
#include "tests/bridges/mpd/bridge_process.h"
#include "tests/bridges/mpd/terminal.h"

namespace vantro::mpd {
namespace {

class Ncmpcpp : public Bridge {
  protected:
    void SetUp() override {
        if (access(NCMPCPP, X_OK) != 0 || access(TMUX, X_OK) != 0) {
            GTEST_SKIP() << "ncmpcpp or tmux is not installed";
        }
        Bridge::SetUp();
        client_ = std::make_unique<RawClient>(port_);
        test::write_file(path_ + "/ncmpcpp.conf",
                         "ncmpcpp_directory = " + path_ + "/ncmpcpp\nlyrics_directory = " + path_ +
                             "/lyrics\nask_before_clearing_playlists = no\nmouse_support = no\n"
                             "seek_time = 10\nvolume_change_step = 5\n"
                             "autocenter_mode = no\nprogressbar_look = =>-\n");
        terminal_ = std::make_unique<Terminal>(path_, "env HOME=" + path_ + " " NCMPCPP " -q -c " +
                                                          path_ + "/ncmpcpp.conf");
    }
    void TearDown() override {
        if (!IsSkipped()) {
            terminal_.reset();
            client_.reset();
            Bridge::TearDown();
        }
    }

    // Presses keys, if there are any, and waits for a text on the screen.
    void press(const std::vector<std::string> &keys, const std::string &shown = "") {
        if (!keys.empty()) {
            terminal_->press(keys);
        }
        EXPECT_TRUE(terminal_->shows(shown)) << shown << " is not on:\n" << terminal_->screen();
    }
    // Waits until an answer contains the text.
    void expect(const std::string &line, const std::string &part) {
        std::string said;
        EXPECT_TRUE(comes_true([&] {
            said = client_->ask(line);
            return said.find(part) != said.npos;
        })) << part
            << " is not in:\n"
            << said << terminal_->screen();
    }

    std::unique_ptr<RawClient> client_;
    std::unique_ptr<Terminal> terminal_;
};

TEST_F(Ncmpcpp, DrivesThePlayer) {
    const std::string one = "Title: One\n", two = "Title: Zw\xC3\x96lf\n", loose = "Title: Loose\n";
    // The library: artists, their albums, songs.
    press({"4"}, "Blue");
    press({"Down"}, "01 - One");
    press({"Right", "Right", "Space"}, "Added to playlist: Red");
    expect("playlistinfo", one);
    // Folders.
    press({"2"}, "[music]");
    press({"Enter"}, "Loose");
    press({"End", "Space"});
    expect("playlistinfo 1", loose);
    // A search.
    press({"3"}, "Search mode");
    press({"Enter", "z", "w", "Enter"}, "Any          : zw");
    press({"y"}, "Found 1 song");
    press({"Space"});
    expect("playlistinfo 2", two);
    // The queue and the current song.
    press({"1"}, "Playlist (3 items");
    press({"Home", "Enter"});
    expect("status", "state: play\nsong: 0\n");
    press({">"});
    expect("status", "song: 1\n");
    press({"p"}, "Paused");
    expect("status", "state: pause\n");
    press({"g"}, "Position to go");
    press({"2", "0", "s", "Enter"});
    expect("status", "elapsed: 20.000\n");
    press({"-"}, "Volume: 95%");
    expect("getvol", "volume: 95\n");
    press({"r"});
    expect("status", "repeat: 1\n");
    press({"z"});
    expect("status", "random: 1\n");
    press({"z", "y"});
    expect("status", "random: 0\nsingle: 1\n");
    press({"Home", "n"});
    expect("playlistinfo 1", one);
    press({"End", "DC"}, "Playlist (2 items");
    expect("playlistinfo", loose + "Genre: Rock\nTime: 30\nduration: 30.000\nPos: 0\n");
    // Saved playlists.
    press({"S"}, "Save playlist as");
    terminal_->type("evening");
    press({"Enter"}, "Playlist saved as");
    expect("listplaylist evening", "music/loose.flac\nfile: music/Red");
    press({"5"}, "evening");
    press({"Home", "Space"}, "loaded");
    expect("status", "playlistlength: 4\n");
    press({"Home", "DC"}, "Delete playlist \"evening\"?");
    press({"y"});
    expect("listplaylists", "playlist: mix\nOK\n");
    // Outputs, and a restart of the service.
    press({"7"}, "Outputs");
    press({"Enter"}, "disabled");
    expect("outputs", "outputenabled: 0\n");
    press({"1"}, "Playlist (4 items");
    press({"c"}, "Playlist (0 items");
    vantrod_->kill(SIGKILL);
    vantrod_->wait();
    start_vantrod();
    expect("clear", "OK\n"); // it may have kept the queue of a moment before
    expect("add music", "OK\n");
    press({}, "Playlist (3 items");
    press({"q"});
}

} // namespace
} // namespace vantro::mpd
