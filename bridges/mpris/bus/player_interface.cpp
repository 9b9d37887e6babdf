// org.mpris.MediaPlayer2.Player: playback and its state.
#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <string_view>

#include "bridges/mpris/bus/interfaces.h"

namespace vantro::mpris {

namespace {

using Milliseconds = Player::Milliseconds;

double position_ms(BusPlayer &player) {
    return player.link().mirror().position_ms(std::chrono::steady_clock::now());
}

Milliseconds within_a_track(double ms) {
    return Milliseconds(std::llround(std::clamp(ms, 0.0, double{INT_MAX})));
}

// The methods.

template <Result<void> (Player::*command)()>
int run(BusPlayer &player, sd_bus_message *call, sd_bus_error *error) {
    return player.answer(call, (player.link().player().*command)(), error);
}

int play_pause(BusPlayer &player, sd_bus_message *call, sd_bus_error *error) {
    const bool playing = player.link().mirror().modes().state == VANTRO_STATE_PLAYING;
    return playing ? run<&Player::pause>(player, call, error)
                   : run<&Player::play>(player, call, error);
}

int seek(BusPlayer &player, sd_bus_message *call, sd_bus_error *error) {
    int64_t offset_us = 0;
    if (const int result = sd_bus_message_read(call, "x", &offset_us); result < 0) {
        return result;
    }
    if (!player.view().can_seek) {
        return sd_bus_reply_method_return(call, "");
    }
    const double length_ms = static_cast<double>(player.view().song.length_us) / 1000;
    const double to_ms = position_ms(player) + static_cast<double>(offset_us) / 1000;
    if (length_ms > 0 && to_ms > length_ms) {
        return run<&Player::next>(player, call, error);
    }
    return player.answer(call, player.link().seek(within_a_track(to_ms)), error);
}

// A position for another track, or outside this one, has no effect.
int set_position(BusPlayer &player, sd_bus_message *call, sd_bus_error *error) {
    const char *track = nullptr;
    int64_t to_us = 0;
    if (const int result = sd_bus_message_read(call, "ox", &track, &to_us); result < 0) {
        return result;
    }
    const Song &song = player.view().song;
    if (!player.view().can_seek || track != song.path || to_us < 0 ||
        (song.length_us > 0 && to_us > song.length_us)) {
        return sd_bus_reply_method_return(call, "");
    }
    const Milliseconds to = within_a_track(static_cast<double>(to_us) / 1000);
    return player.answer(call, player.link().seek(to), error);
}

int open_uri(BusPlayer &, sd_bus_message *, sd_bus_error *error) {
    return sd_bus_error_set(error, SD_BUS_ERROR_NOT_SUPPORTED,
                            "the player plays files of its service's catalogue only, and opens no "
                            "addresses");
}

// The properties.

int get_playback_status(BusPlayer &player, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "s", player.view().playback_status.c_str());
}

int get_loop_status(BusPlayer &player, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "s", player.view().loop_status.c_str());
}

int get_position(BusPlayer &player, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "x", static_cast<int64_t>(position_ms(player) * 1000));
}

int get_metadata(BusPlayer &player, sd_bus_message *reply) {
    return append_metadata(reply, player.view().song);
}

template <double PlayerView::*number>
int get_number(BusPlayer &player, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "d", player.view().*number);
}

template <bool PlayerView::*flag>
int get_flag(BusPlayer &player, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "b", int{player.view().*flag});
}

int get_least_rate(BusPlayer &, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "d", rate_min);
}

int get_highest_rate(BusPlayer &, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "d", rate_max);
}

// Answers a call that sets a property, after the signals of its effect.
int set(BusPlayer &player, const Result<void> &done, sd_bus_error *error) {
    static_cast<void>(player.follow());
    return done ? 0 : set_error(error, done.failure());
}

int set_loop_status(BusPlayer &player, sd_bus_message *value, sd_bus_error *error) {
    const char *text = nullptr;
    if (const int result = sd_bus_message_read(value, "s", &text); result < 0) {
        return result;
    }
    const std::string_view wanted(text);
    if (wanted != "None" && wanted != "Track" && wanted != "Playlist") {
        return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS,
                                "LoopStatus is None, Track or Playlist");
    }
    const Repeat mode = wanted == "Track"      ? Repeat::one
                        : wanted == "Playlist" ? Repeat::all
                                               : Repeat::off;
    return set(player, player.link().player().set_repeat(mode), error);
}

int set_shuffle(BusPlayer &player, sd_bus_message *value, sd_bus_error *error) {
    int on = 0;
    if (const int result = sd_bus_message_read(value, "b", &on); result < 0) {
        return result;
    }
    return set(player, player.link().player().set_shuffle(on != 0), error);
}

int set_rate(BusPlayer &player, sd_bus_message *value, sd_bus_error *error) {
    double rate = 0;
    if (const int result = sd_bus_message_read(value, "d", &rate); result < 0) {
        return result;
    }
    if (rate == 0) { // means a pause here
        return set(player, player.link().player().pause(), error);
    }
    if (!(rate >= rate_min && rate <= rate_max)) {
        return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS,
                                "Rate lies between MinimumRate and MaximumRate");
    }
    return set(player, player.link().player().set_rate(static_cast<float>(rate)), error);
}

int set_volume(BusPlayer &player, sd_bus_message *value, sd_bus_error *error) {
    double volume = 0;
    if (const int result = sd_bus_message_read(value, "d", &volume); result < 0) {
        return result;
    }
    if (std::isnan(volume)) {
        return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS, "Volume is a number");
    }
    const auto level = static_cast<int32_t>(std::lround(std::clamp(volume, 0.0, 1.0) * 100));
    Result<void> done = player.link().player().set_volume(level);
    // A muted player has the volume 0 here; setting a volume above 0 unmutes it.
    if (done && level > 0 && player.link().mirror().volume().muted != 0) {
        done = player.link().player().set_muted(false);
    }
    return set(player, done, error);
}

constexpr uint64_t constant = SD_BUS_VTABLE_PROPERTY_CONST;
constexpr uint64_t told = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;

const sd_bus_vtable table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Next", "", "", on_call<run<&Player::next>>, 0),
    SD_BUS_METHOD("Previous", "", "", on_call<run<&Player::previous>>, 0),
    SD_BUS_METHOD("Pause", "", "", on_call<run<&Player::pause>>, 0),
    SD_BUS_METHOD("PlayPause", "", "", on_call<play_pause>, 0),
    SD_BUS_METHOD("Stop", "", "", on_call<run<&Player::stop>>, 0),
    SD_BUS_METHOD("Play", "", "", on_call<run<&Player::play>>, 0),
    SD_BUS_METHOD_WITH_NAMES("Seek", "x", SD_BUS_PARAM(Offset), "", "", on_call<seek>, 0),
    SD_BUS_METHOD_WITH_NAMES("SetPosition", "ox", SD_BUS_PARAM(TrackId) SD_BUS_PARAM(Position), "",
                             "", on_call<set_position>, 0),
    SD_BUS_METHOD_WITH_NAMES("OpenUri", "s", SD_BUS_PARAM(Uri), "", "", on_call<open_uri>, 0),
    SD_BUS_SIGNAL_WITH_NAMES("Seeked", "x", SD_BUS_PARAM(Position), 0),
    SD_BUS_PROPERTY("PlaybackStatus", "s", on_get<get_playback_status>, 0, told),
    SD_BUS_WRITABLE_PROPERTY("LoopStatus", "s", on_get<get_loop_status>, on_set<set_loop_status>, 0,
                             told),
    SD_BUS_WRITABLE_PROPERTY("Rate", "d", on_get<get_number<&PlayerView::rate>>, on_set<set_rate>,
                             0, told),
    SD_BUS_WRITABLE_PROPERTY("Shuffle", "b", on_get<get_flag<&PlayerView::shuffle>>,
                             on_set<set_shuffle>, 0, told),
    SD_BUS_PROPERTY("Metadata", "a{sv}", on_get<get_metadata>, 0, told),
    SD_BUS_WRITABLE_PROPERTY("Volume", "d", on_get<get_number<&PlayerView::volume>>,
                             on_set<set_volume>, 0, told),
    SD_BUS_PROPERTY("Position", "x", on_get<get_position>, 0, 0),
    SD_BUS_PROPERTY("MinimumRate", "d", on_get<get_least_rate>, 0, constant),
    SD_BUS_PROPERTY("MaximumRate", "d", on_get<get_highest_rate>, 0, constant),
    SD_BUS_PROPERTY("CanGoNext", "b", on_get<get_flag<&PlayerView::can_go_next>>, 0, told),
    SD_BUS_PROPERTY("CanGoPrevious", "b", on_get<get_flag<&PlayerView::can_go_previous>>, 0, told),
    // Without a track, play begins with all songs.
    SD_BUS_PROPERTY("CanPlay", "b", on_get<get_constant<true>>, 0, constant),
    SD_BUS_PROPERTY("CanPause", "b", on_get<get_flag<&PlayerView::can_pause>>, 0, told),
    SD_BUS_PROPERTY("CanSeek", "b", on_get<get_flag<&PlayerView::can_seek>>, 0, told),
    SD_BUS_PROPERTY("CanControl", "b", on_get<get_constant<true>>, 0, constant),
    SD_BUS_VTABLE_END,
};

} // namespace

const sd_bus_vtable *player_table() {
    return table;
}

} // namespace vantro::mpris
