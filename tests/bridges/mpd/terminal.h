// A program on its own terminal: a test can send it keys and read its screen.
#ifndef VANTRO_TESTS_BRIDGES_MPD_TERMINAL_H
#define VANTRO_TESTS_BRIDGES_MPD_TERMINAL_H

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/process.h"

namespace vantro::mpd {

// The time limit for a screen or a player, long enough for a busy machine.
constexpr std::chrono::seconds patience(60);

// Waits until the condition is true. @return whether it is.
template <typename Condition>
bool comes_true(const Condition &condition) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

class Terminal {
  public:
    // @param directory for tmux's socket. @param command a command line for the shell.
    Terminal(const std::string &directory, const std::string &command)
        : socket_(directory + "/tmux"),
          server_({TMUX, "-u", "-D", "-S", socket_, "-f", "/dev/null"}) {
        EXPECT_TRUE(comes_true([&] {
            return tmux({"new-session", "-d", "-x", "100", "-y", "30", command}).second == 0;
        }));
    }
    ~Terminal() { tmux({"kill-server"}); }

    // Keys by their names, as "Down" or "1"; or a text.
    void press(std::vector<std::string> keys) {
        keys.insert(keys.begin(), "send-keys");
        EXPECT_EQ(tmux(std::move(keys)).second, 0);
    }
    void type(const std::string &text) { press({"-l", text}); }

    std::string screen() { return tmux({"capture-pane", "-p"}).first; }

    // Waits until the screen shows the text.
    bool shows(const std::string &text) {
        return comes_true([&] { return screen().find(text) != std::string::npos; });
    }

  private:
    std::pair<std::string, int> tmux(std::vector<std::string> words) {
        const std::string start[] = {TMUX, "-u", "-S", socket_};
        words.insert(words.begin(), std::begin(start), std::end(start));
        test::Process process(words);
        std::string said = process.rest();
        return {std::move(said), process.wait()};
    }

    const std::string socket_;
    test::Process server_;
};

} // namespace vantro::mpd

#endif
