#include "tools/vantroctl/verbs/play_watch.h"

#include <charconv>
#include <chrono>
#include <cstring>
#include <string_view>

#include <fmt/format.h>

#include <vantro/catalogue.h>
#include <vantro/extras.h>

#include "tools/vantroctl/failure.h"
#include "tools/vantroctl/output/node_view.h"
#include "tools/vantroctl/service/client.h"

namespace vantro::ctl {
namespace {

// If there was no event for so long, the service has tried the files that it had to play.
constexpr int quiet_ms = 50;

constexpr std::chrono::seconds longest{2};

// The number of the error in an object's attributes, or 0.
int32_t error_in(const mosk_dict *dict) {
    const char *const text = dict ? mosk_dict_find_value(dict, "error") : nullptr;
    int32_t code = 0;
    if (text) {
        std::from_chars(text, text + std::strlen(text), code);
    }
    return code;
}

const char *advice(int32_t code) {
    switch (code) {
    case VANTRO_ERROR_GONE:
        return "; is its disk, stick or share connected?";
    case VANTRO_ERROR_UNREADABLE:
        return "; is vantrod allowed to read it?";
    case VANTRO_ERROR_OUTPUT:
        return "; see the reason in vantrod's log, and the outputs with vantrod "
               "--list-audio-devices";
    default:
        return "";
    }
}

} // namespace

PlayWatch::PlayWatch(Client &client) : client_(client) {
    take_events();
    error_ = 0; // of the time before the command
    position_ms_.reset();
}

void PlayWatch::take_events() {
    while (following_) {
        const VantroEvent *const event = vantro_event_get(client_.handle());
        following_ = event != nullptr;
        if (!event || (event->type == VANTRO_EVENT_NONE && !event->object_name)) {
            return;
        }
        if (event->type == VANTRO_EVENT_STATUS) {
            position_ms_ = event->details.status.position;
        } else if (event->object_name && std::string_view(event->object_name) == "state") {
            // A player whose output failed is stopped with the error, and then paused without it.
            error_ = event->state == VANTRO_STATE_PAUSED ? error_ : error_in(event->dict);
        }
    }
}

void PlayWatch::await() {
    const auto end = std::chrono::steady_clock::now() + longest;
    for (take_events(); following_ && std::chrono::steady_clock::now() < end; take_events()) {
        const int events = vantro_event_wait_for(client_.handle(), quiet_ms);
        following_ = events >= 0;
        if (events != 0) {
            continue;
        }
        const PlayerStatus now = client_.status();
        if (now.state != VANTRO_STATE_PLAYING) {
            take_events();
            explain_stop();
            return;
        }
        if (position_ms_ && now.position_ms > *position_ms_) {
            return;
        }
        position_ms_ = now.position_ms;
    }
}

// Without an error the music has ended, or another client stopped it.
void PlayWatch::explain_stop() const {
    if (error_ != 0) {
        throw Failure(error_ == VANTRO_ERROR_GONE ? Outcome::not_found : Outcome::failed,
                      fmt::format("nothing plays: {}{}", error_words(error_), advice(error_)));
    }
}

} // namespace vantro::ctl
