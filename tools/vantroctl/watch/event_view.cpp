#include "tools/vantroctl/watch/event_view.h"

#include <iterator>
#include <vector>

#include <fmt/format.h>

#include "tools/vantroctl/output/node_view.h"
#include "tools/vantroctl/output/status_view.h"
#include "tools/vantroctl/text/display_text.h"
#include "tools/vantroctl/text/time_text.h"

namespace vantro::ctl {
namespace {

// Names, and values of an object that the tool does not know, may have any length.
constexpr int words_columns_max = 1000;

// All modes, or those that changed.
std::string modes_words(const PlayerEvent &event) {
    const PlayerModes &now = event.modes;
    const PlayerModes &before = event.previous;
    std::vector<std::string> words;
    if (event.initial || now.state != before.state) {
        words.emplace_back(state_name(now.state));
    }
    if (event.initial || now.rate != before.rate) {
        words.push_back("rate " + rate_text(now.rate));
    }
    if (event.initial || now.repeat != before.repeat) {
        words.push_back(fmt::format("repeat {}", repeat_name(now.repeat)));
    }
    if (event.initial || now.shuffle != before.shuffle) {
        words.push_back(fmt::format("shuffle {}", shuffle_name(now.shuffle)));
    }
    return fmt::format("{}", fmt::join(words, ", "));
}

std::string words_of(const PlayerEvent &event, const PlayerMirror &before) {
    switch (event.kind) {
    case PlayerEvent::Kind::state:
        return modes_words(event);
    case PlayerEvent::Kind::session:
        return event.session ? fmt::format("{} {}", event.session->length,
                                           event.session->length == 1 ? "track" : "tracks")
                             : "none";
    case PlayerEvent::Kind::track:
        return event.track ? track_words(*event.track, before.status(event.at).session) : "none";
    case PlayerEvent::Kind::position: {
        const auto track = before.status(event.at).track;
        return track && track->duration_ms > 0
                   ? fmt::format("{} of {}", format_time(event.position_ms),
                                 format_time(track->duration_ms))
                   : format_time(event.position_ms);
    }
    case PlayerEvent::Kind::source: {
        if (event.source_gone) {
            return fmt::format("{}: {}, gone", event.source.id, event.source.name);
        }
        const auto known = before.sources().find(event.source.id);
        const bool same = known != before.sources().end() && known->second == event.source;
        return fmt::format("{}: {}, {}{}", event.source.id, event.source.name,
                           source_status_name(event.source.status),
                           same ? ", its contents have changed" : "");
    }
    case PlayerEvent::Kind::error:
        return fmt::format("{}: {} (error {})", state_name(event.modes.state),
                           error_words(event.code), event.code);
    case PlayerEvent::Kind::object: {
        std::string words = event.object + ':';
        for (const auto &[name, value] : event.attributes) {
            words += fmt::format(" {}={}", name, value);
        }
        return words;
    }
    case PlayerEvent::Kind::gone:
        return "the service is gone; waiting for it";
    case PlayerEvent::Kind::waiting:
        return event.reason;
    case PlayerEvent::Kind::back:
        return "the service is back";
    }
    return {};
}

} // namespace

const char *event_name(PlayerEvent::Kind kind) {
    static constexpr const char *names[] = {"state", "session", "track", "position", "source",
                                            "error", "object",  "gone",  "waiting",  "back"};
    static_assert(std::size(names) == static_cast<size_t>(PlayerEvent::Kind::back) + 1);
    return names[static_cast<size_t>(kind)];
}

std::string event_words(const PlayerEvent &event, const PlayerMirror &before) {
    return clip_text(clean_text(words_of(event, before)), words_columns_max);
}

} // namespace vantro::ctl
