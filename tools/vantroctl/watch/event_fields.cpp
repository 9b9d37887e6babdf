#include "tools/vantroctl/watch/event_fields.h"

#include "tools/vantroctl/output/fields.h"
#include "tools/vantroctl/output/node_view.h"
#include "tools/vantroctl/text/time_text.h"
#include "tools/vantroctl/watch/event_view.h"

namespace vantro::ctl {

std::vector<std::string_view> event_fields() {
    std::vector<std::string_view> names = {"event", "time", "words", "initial", "error", "object"};
    for (const std::string_view name : status_fields()) {
        names.push_back(name);
    }
    return names;
}

std::string event_field(const PlayerEvent &event, const std::string &words,
                        const PlayerStatus &after, std::string_view name) {
    if (name == "event") {
        return event_name(event.kind);
    }
    if (name == "time") {
        return date_time_text(event.time);
    }
    if (name == "words") {
        return words;
    }
    if (name == "initial") {
        return event.initial ? "yes" : "";
    }
    if (name == "error") {
        return event.kind == PlayerEvent::Kind::error ? error_name(event.code) : "";
    }
    if (name == "object") {
        return event.object;
    }
    return status_field(after, name);
}

} // namespace vantro::ctl
