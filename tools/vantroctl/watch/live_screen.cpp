#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <set>
#include <string_view>

#include <pthread.h>

#include <fmt/format.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/output/node_view.h"
#include "tools/vantroctl/output/standard_output.h"
#include "tools/vantroctl/output/status_view.h"
#include "tools/vantroctl/output/terminal.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/text/time_text.h"
#include "tools/vantroctl/watch/event_view.h"
#include "tools/vantroctl/watch/player_mirror.h"
#include "tools/vantroctl/watch/watch_view.h"

namespace vantro::ctl {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// Often enough for a position of whole seconds, and for a bar of 80 parts.
constexpr Milliseconds redraw(250);
// The least time between two frames, however fast events come.
constexpr Milliseconds redraw_min(40);

constexpr const char *hint = "q leaves";

// Stops the process, as the terminal's suspend key would have done.
void stop_process() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    raise(SIGTSTP);
    pthread_sigmask(SIG_UNBLOCK, &stop, nullptr); // Continues here when resumed.
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
}

std::string lines_of(const PlayerMirror &mirror, int columns) {
    const PlayerStatus status = mirror.status(Clock::now());
    std::string text;
    if (mirror.gone()) {
        text = clip_text(clean_text(status.player) + ": the service is gone; waiting for it",
                         columns) +
               '\n';
    } else {
        text = render_screen(status, columns);
        std::string sources;
        for (const auto &[id, source] : mirror.sources()) {
            sources += fmt::format("{}{} {}", sources.empty() ? "" : ", ", clean_text(source.name),
                                   source_status_name(source.status));
        }
        text += sources.empty() ? "" : clip_text("sources: " + sources, columns) + '\n';
    }
    if (const auto &trouble = mirror.trouble()) {
        text += clip_text(fmt::format("{}  {}", clock_text(trouble->time).substr(0, 8),
                                      event_words(*trouble, mirror)),
                          columns) +
                '\n';
    }
    return text;
}

class LiveScreen : public WatchView {
  public:
    explicit LiveScreen(const std::vector<std::string> &players) {
        for (const std::string &player : players) {
            mirrors_.emplace_back(player);
            names_.push_back(player);
        }
    }

    void begin() override { terminal_.take(); }

    void take(const PlayerEvent &event) override {
        const auto name = std::find(names_.begin(), names_.end(), event.player);
        mirrors_[static_cast<size_t>(name - names_.begin())].apply(event);
        heard_of_.insert(event.player);
    }

    std::string output() override {
        if (heard_of_.size() < names_.size()) {
            return {}; // Until every player has reported once, the screen would show defaults.
        }
        const auto now = Clock::now();
        late_ = now < drawn_at_ + redraw_min;
        if (late_) {
            return {};
        }
        drawn_at_ = now;
        std::string frame = draw();
        if (frame == shown_) {
            return {};
        }
        shown_ = frame;
        return frame;
    }

    int wake_in_ms() const override {
        const bool moving = std::any_of(mirrors_.begin(), mirrors_.end(),
                                        [](const PlayerMirror &mirror) { return mirror.moving(); });
        return static_cast<int>((late_ ? redraw_min : moving ? redraw : Milliseconds(-1)).count());
    }

    std::vector<int> signals() const override { return {SIGWINCH, SIGTSTP, SIGCONT}; }

    void take_signal(int number) override {
        if (number == SIGTSTP) {
            terminal_.give_back();
            stop_process();
        }
        if (number != SIGWINCH) {
            terminal_.take();
        }
        shown_.clear();
    }

    bool reads_keys() const override { return terminal_.has_keys(); }
    bool take_key(char key) override { return key == 'q' || key == 'Q'; }

  private:
    // A whole screen. Each line is cleared from its end on; the screen is never cleared, so that it
    // does not flicker.
    std::string draw() const {
        const int columns = output_columns();
        const int rows = output_rows();
        std::string text;
        for (const PlayerMirror &mirror : mirrors_) {
            text += lines_of(mirror, columns) + '\n';
        }
        text += clip_text(hint, columns) + '\n';
        std::string frame = "\x1B[H";
        std::string_view left = text;
        for (int row = 0; row < rows && !left.empty(); ++row) {
            const size_t end = left.find('\n');
            frame += fmt::format("{}{}\x1B[K", row > 0 ? "\r\n" : "", left.substr(0, end));
            left.remove_prefix(end + 1);
        }
        return frame + "\x1B[J";
    }

    Terminal terminal_;
    std::vector<std::string> names_;
    std::vector<PlayerMirror> mirrors_;
    std::set<std::string> heard_of_;
    std::string shown_;
    Clock::time_point drawn_at_;
    bool late_ = false; // A change may be waiting to be drawn.
};

} // namespace

std::unique_ptr<WatchView> make_live_screen(const std::vector<std::string> &players) {
    const char *terminal = std::getenv("TERM");
    if (!output_is_terminal()) {
        throw Failure(Outcome::usage, "--live needs a terminal, and standard output is not one; "
                                      "watch without --live writes lines");
    }
    if (!terminal || !*terminal || std::string_view(terminal) == "dumb") {
        throw Failure(Outcome::usage,
                      "--live needs a terminal that can move the cursor, and TERM says "
                      "that this one cannot; watch without it writes lines");
    }
    return std::make_unique<LiveScreen>(players);
}

} // namespace vantro::ctl
