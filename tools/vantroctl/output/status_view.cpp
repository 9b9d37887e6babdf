#include "tools/vantroctl/output/status_view.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include <vantro/player.h>

#include "tools/vantroctl/output/colour.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/text/time_text.h"

namespace vantro::ctl {
namespace {

// A wider bar would show no more detail, and its ends would be far apart.
constexpr int bar_columns_max = 80;
// A bar of fewer cells shows nothing.
constexpr int bar_cells_min = 4;
// Below this width the labels would leave no room for the values.
constexpr int label_columns_min = 24;

class Screen {
  public:
    explicit Screen(int columns) : columns_(std::max(columns, 1)) {}

    void line(std::string_view clean, Ink ink = Ink::plain) {
        text_ += painted(ink, clip_text(clean, columns_));
        text_ += '\n';
    }

    void labelled(std::string_view label, const std::string &value, Ink ink = Ink::plain) {
        const std::string shown = value.empty() ? "-" : clean_text(value);
        line(columns_ < label_columns_min ? shown : fmt::format("{:<8}{}", label, shown), ink);
    }

    // As many parts a line as fit.
    void wrapped(const std::vector<std::string> &parts) {
        std::string row;
        for (const std::string &part : parts) {
            const std::string longer = row.empty() ? part : fmt::format("{}   {}", row, part);
            if (!row.empty() && display_width(longer) > columns_) {
                line(row);
                row = part;
            } else {
                row = longer;
            }
        }
        line(row);
    }

    void position(int32_t elapsed_ms, int32_t duration_ms) {
        if (duration_ms <= 0) {
            line(format_time(elapsed_ms));
            return;
        }
        const int64_t elapsed = std::clamp(elapsed_ms, 0, duration_ms);
        const std::string before = format_time(static_cast<int32_t>(elapsed));
        const std::string after = format_time(duration_ms);
        const int cells = std::min(columns_, bar_columns_max) -
                          static_cast<int>(before.size() + after.size()) - 4;
        if (cells < bar_cells_min) {
            line(before + "/" + after);
            return;
        }
        const auto done = static_cast<int>(elapsed * cells / duration_ms);
        std::string bar(static_cast<size_t>(cells), '-');
        std::fill_n(bar.begin(), done, '=');
        bar[static_cast<size_t>(std::min(done, cells - 1))] = '>';
        line(fmt::format("{} [{}] {}", before, bar, after));
    }

    std::string take() { return std::move(text_); }

  private:
    int columns_;
    std::string text_;
};

} // namespace

Ink ink_of(const PlayerStatus &status) {
    return status.state == VANTRO_STATE_PLAYING ? Ink::playing : Ink::plain;
}

const char *state_name(int32_t state) {
    static constexpr const char *names[] = {"none", "idle", "playing", "paused", "stopped"};
    return state >= 0 && state < 5 ? names[state] : "unknown";
}

const char *repeat_name(int32_t repeat) {
    static constexpr const char *names[] = {"off", "all", "one"};
    return repeat >= 0 && repeat < 3 ? names[repeat] : "unknown";
}

const char *shuffle_name(int32_t shuffle) {
    return shuffle ? "on" : "off";
}

std::string track_words(const TrackStatus &track, const std::optional<SessionStatus> &session) {
    std::string words = fmt::format("{}", int64_t{track.index} + 1);
    if (session) {
        words += fmt::format(" of {}", session->length);
    }
    const char *separator = ": ";
    for (const std::string *text : {&track.title, &track.artist, &track.album}) {
        if (!text->empty()) {
            words += separator + *text;
            separator = " - ";
        }
    }
    if (track.duration_ms > 0) {
        words += fmt::format(" ({})", format_time(track.duration_ms));
    }
    return words;
}

std::string rate_text(float rate) {
    return fmt::format("{}", rate);
}

std::string volume_text(const Volume &volume) {
    return fmt::format("{}{}", volume.level, volume.muted ? ", muted" : "");
}

std::string render_screen(const PlayerStatus &status, int columns) {
    Screen screen(columns);
    std::string head = clean_text(status.player) + ": " + state_name(status.state);
    if (status.track) {
        head += fmt::format(", track {}", int64_t{status.track->index} + 1);
        if (status.session) {
            head += fmt::format(" of {}", status.session->length);
        }
    }
    screen.line(head);
    if (status.track) {
        screen.labelled("Title", status.track->title, ink_of(status));
        screen.labelled("Artist", status.track->artist);
        screen.labelled("Album", status.track->album);
        screen.position(status.position_ms, status.track->duration_ms);
    } else {
        screen.line("no track");
    }
    std::vector<std::string> modes = {fmt::format("repeat {}", repeat_name(status.repeat)),
                                      fmt::format("shuffle {}", shuffle_name(status.shuffle)),
                                      fmt::format("rate {}", rate_text(status.rate))};
    if (status.volume) {
        modes.push_back(fmt::format("volume {}", volume_text(*status.volume)));
    }
    screen.wrapped(modes);
    return screen.take();
}

std::string render_lines(const PlayerStatus &status) {
    std::string text;
    const auto add = [&text](const char *key, const std::string &value, Ink ink = Ink::plain) {
        text += painted(ink, value.empty() ? fmt::format("{}:\n", key)
                                           : fmt::format("{}: {}\n", key, clean_text(value)));
    };
    const TrackStatus *track = status.track ? &*status.track : nullptr;
    const bool timed = track && track->duration_ms > 0;
    add("player", status.player);
    add("state", state_name(status.state));
    add("track", track ? fmt::format("{}", int64_t{track->index} + 1) : "");
    add("tracks", status.session ? fmt::format("{}", status.session->length) : "");
    add("title", track ? track->title : "", ink_of(status));
    add("artist", track ? track->artist : "");
    add("album", track ? track->album : "");
    add("position", track ? format_time(status.position_ms) : "");
    add("duration", timed ? format_time(track->duration_ms) : "");
    add("repeat", repeat_name(status.repeat));
    add("shuffle", shuffle_name(status.shuffle));
    add("rate", rate_text(status.rate));
    if (status.volume) {
        add("volume", volume_text(*status.volume));
    }
    return text;
}

} // namespace vantro::ctl
