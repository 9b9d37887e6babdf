#include "tests/support/player_follower.h"

#include <sstream>

#include "records/fields.h"
#include "tests/support/local_service.h"

namespace vantro::events {

namespace {

int32_t agree(MsgOsb *open, MsgContext *context, MsgService *) {
    const int32_t granted = 0;
    return callout_reply(open, context, 0, &granted, sizeof granted);
}

std::string quoted(const char *text) {
    return text ? std::string("'").append(text).append("'") : "-";
}

template <class Record>
void tell(std::ostream &out, const char *name, const Record *record) {
    if (!record) {
        return;
    }
    out << ' ' << name;
    const auto tell_all = [&](const auto &fields) {
        for (auto field : fields) {
            out << ' ' << record->*field;
        }
    };
    tell_all(records::Fields<Record>::integers);
    tell_all(records::Fields<Record>::wide_integers);
    for (auto field : records::Fields<Record>::strings) {
        out << ' ' << quoted(record->*field);
    }
}

} // namespace

std::string told(const mosk_dict *dict) {
    std::string text;
    const char *key, *value;
    for (size_t i = 0; mosk_dict_entry(dict, i, &key, &value) == 0; i++) {
        text.append(i == 0 ? "{" : ",").append(key).append("=").append(value);
    }
    return !dict ? "-" : text.empty() ? "{}" : text + "}";
}

std::string told(const VantroEvent *event) {
    if (!event) {
        return "failed";
    }
    std::ostringstream out;
    const VantroEventDetails &d = event->details;
    const auto tell_state = [&](const auto &state) {
        out << state.state << '/' << state.rate << '/' << state.repeat << '/' << state.shuffle;
    };
    const std::string object = event->object_name ? event->object_name : "";
    out << event->type << (object.empty() ? "" : " ") << object;
    if (object == "state") {
        out << ' ', tell_state(*event);
    }
    if (event->type == VANTRO_EVENT_STATE) {
        out << " was ", tell_state(d.state);
    } else if (event->type == VANTRO_EVENT_ERROR) {
        out << " error " << d.error.code;
    } else if (event->type == VANTRO_EVENT_STATUS) {
        out << ' ' << d.status.position;
    } else if (event->type == VANTRO_EVENT_TRKSESSION) {
        out << ' ' << d.trksession.type << ' ' << d.trksession.length << ' ' << d.trksession.tsid;
    } else if (event->type == VANTRO_EVENT_MEDIASOURCE) {
        tell(out << ' ' << d.mediasource.type, "source", d.mediasource.media_source);
    } else if (event->type == VANTRO_EVENT_TRACK) {
        tell(out << ' ' << d.track.index << ' ' << d.track.tsid, "node", d.track.media_node);
        tell(out, "metadata", d.track.metadata);
    } else if (event->dict) {
        out << ' ' << told(event->dict);
    }
    if (event->user_data) {
        out << " *" << static_cast<const char *>(event->user_data);
    }
    return out.str();
}

void Events::SetUp() {
    static const test::LocalService service(agree); // from the first test that needs it
    system_log_set_sink(record_line, this);
    ASSERT_TRUE(handle = vantro_connect());
    ASSERT_EQ(vantro_open(handle, "main"), 0);
}

void Events::TearDown() {
    vantro_disconnect(handle);
    stop_publishing();
    EXPECT_EQ(take_lines(), Lines{});
    system_log_set_sink(nullptr, nullptr);
}

void Events::record_line(uint32_t code, int severity, const char *line, void *data) {
    auto *test = static_cast<Events *>(data);
    EXPECT_EQ(code, 0x06C02710U);
    EXPECT_EQ(std::string(line).substr(0, 14), "vantro event: ");
    {
        const MutexLock lock(test->guard_);
        test->lines_.push_back(std::to_string(severity) + " " + (line + 14));
    }
    if (test->on_line) {
        std::exchange(test->on_line, nullptr)();
    }
}

} // namespace vantro::events
