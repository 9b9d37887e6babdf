#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>
#include <utility>

#include <fmt/format.h>

#include "tools/vantroctl/output/colour.h"
#include "tools/vantroctl/output/standard_output.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/text/time_text.h"
#include "tools/vantroctl/watch/event_fields.h"
#include "tools/vantroctl/watch/event_json.h"
#include "tools/vantroctl/watch/event_view.h"
#include "tools/vantroctl/watch/player_mirror.h"
#include "tools/vantroctl/watch/watch_view.h"

namespace vantro::ctl {
namespace {

// The longest name of an event.
constexpr int kind_columns = 8;

Ink ink_of(const PlayerEvent &event) {
    switch (event.kind) {
    case PlayerEvent::Kind::track:
        return event.track ? Ink::playing : Ink::plain;
    case PlayerEvent::Kind::error:
    case PlayerEvent::Kind::gone:
    case PlayerEvent::Kind::waiting:
        return Ink::wrong;
    default:
        return Ink::plain;
    }
}

class EventLines : public WatchView {
  public:
    explicit EventLines(const std::vector<std::string> &players) {
        for (const std::string &player : players) {
            mirrors_.emplace(player, PlayerMirror(player));
            player_columns_ = std::max(player_columns_, display_width(clean_text(player)));
        }
        if (players.size() == 1) {
            player_columns_ = 0; // With one player its name is not shown.
        }
    }

    void take(const PlayerEvent &event) override {
        PlayerMirror &mirror = mirrors_.at(event.player);
        const std::string words = event_words(event, mirror);
        const bool expected = mirror.expects(event);
        mirror.apply(event);
        if (!output_is_terminal()) {
            text_ += painted(ink_of(event),
                             fmt::format("{}\t{}\t{}\t{}\n", date_time_text(event.time),
                                         clean_text(event.player), event_name(event.kind), words));
            return;
        }
        std::string line = clock_text(event.time) + "  ";
        if (player_columns_ > 0) {
            const std::string player = clean_text(event.player);
            const int blanks = player_columns_ - display_width(player) + 2;
            line += player;
            line.append(static_cast<size_t>(blanks), ' ');
        }
        line += fmt::format("{:<{}}  {}", event_name(event.kind), kind_columns, words);
        show(event.player, painted(ink_of(event), clip_text(line, output_columns())),
             expected && can_rewrite());
    }

    std::string output() override { return std::exchange(text_, {}); }

  private:
    // The positions of a player that the clock predicts share one line at the end of the screen:
    // each replaces the previous one, so that other events stay visible.
    void show(const std::string &player, const std::string &line, bool expected) {
        if (!expected) {
            ticking_.clear();
            text_ += line + '\n';
            return;
        }
        const auto place = std::find(ticking_.begin(), ticking_.end(), player);
        const auto up = std::distance(place, ticking_.end());
        if (up == 0) {
            ticking_.push_back(player);
            text_ += line + '\n';
        } else {
            text_ += fmt::format("\x1B[{}A\r{}\x1B[K\n", up, line);
            text_ += up > 1 ? fmt::format("\x1B[{}B", up - 1) : "";
        }
    }

    static bool can_rewrite() {
        const char *terminal = std::getenv("TERM");
        return terminal && std::string_view(terminal) != "dumb";
    }

    std::map<std::string, PlayerMirror> mirrors_;
    int player_columns_ = 0;
    std::vector<std::string>
        ticking_; // The players whose positions are the last lines of the screen.
    std::string text_;
};

class FormattedEvents : public WatchView {
  public:
    FormattedEvents(const std::vector<std::string> &players, const Template &format)
        : format_(format) {
        for (const std::string &player : players) {
            mirrors_.emplace(player, PlayerMirror(player));
        }
    }

    void take(const PlayerEvent &event) override {
        PlayerMirror &mirror = mirrors_.at(event.player);
        const std::string words = event_words(event, mirror);
        mirror.apply(event);
        const PlayerStatus after = mirror.status(event.at);
        std::string line = format_.line(
            [&](std::string_view name) { return event_field(event, words, after, name); });
        std::string &last = last_[event.player];
        if (line != last) { // Most events do not change the text of the template.
            text_ += line;
            last = std::move(line);
        }
    }
    std::string output() override { return std::exchange(text_, {}); }

  private:
    const Template &format_;
    std::map<std::string, PlayerMirror> mirrors_;
    std::map<std::string, std::string> last_; // The line that was last shown of each player.
    std::string text_;
};

class EventObjects : public WatchView {
  public:
    void take(const PlayerEvent &event) override { text_ += json_event(event); }
    std::string output() override { return std::exchange(text_, {}); }

  private:
    std::string text_;
};

} // namespace

std::unique_ptr<WatchView> make_event_lines(const std::vector<std::string> &players) {
    return std::make_unique<EventLines>(players);
}

std::unique_ptr<WatchView> make_formatted_events(const std::vector<std::string> &players,
                                                 const Template &format) {
    return std::make_unique<FormattedEvents>(players, format);
}

std::unique_ptr<WatchView> make_event_objects() {
    return std::make_unique<EventObjects>();
}

} // namespace vantro::ctl
