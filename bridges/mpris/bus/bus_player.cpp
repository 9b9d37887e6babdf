#include "bridges/mpris/bus/bus_player.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "bridges/mpris/bus/interfaces.h"
#include "bridges/mpris/bus/values.h"

namespace vantro::mpris {

namespace {

struct Unreference {
    void operator()(sd_bus_message *message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, Unreference>;

// A new signal of the track list; the caller fills and sends it.
Message track_list_signal(sd_bus *bus, const char *name) {
    sd_bus_message *signal = nullptr;
    sd_bus_message_new_signal(bus, &signal, object_path, track_list_interface, name);
    return Message(signal);
}

} // namespace

BusPlayer::BusPlayer(std::string name, PlayerLink link)
    : name_(std::move(name)), link_(std::move(link)), view_(view_of(link_.mirror())),
      window_(next_window({}, link_.mirror())), playlist_count_(count_playlists(link_.player())) {
    link_.take_source_news();
}

int BusPlayer::open(sd_event *loop) {
    sd_bus *bus = nullptr;
    int result = sd_bus_open_user(&bus);
    if (result < 0) {
        return result;
    }
    bus_.reset(bus);
    const struct {
        const char *name;
        const sd_bus_vtable *table;
    } interfaces[] = {{root_interface, root_table()},
                      {player_interface, player_table()},
                      {track_list_interface, track_list_table()},
                      {playlists_interface, playlists_table()}};
    for (const auto &interface : interfaces) {
        result = sd_bus_add_object_vtable(bus, nullptr, object_path, interface.name,
                                          interface.table, this);
        if (result < 0) {
            return result;
        }
    }
    // The end of the session's bus ends the program.
    sd_bus_set_exit_on_disconnect(bus, 1);
    result = sd_bus_request_name(bus, bus_name_of(name_).c_str(), 0);
    return result < 0 ? result : sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL);
}

Result<void> BusPlayer::follow() {
    Result<void> followed = link_.follow();
    if (followed) {
        tell_changes();
    }
    return followed;
}

void BusPlayer::retire(const Failure &why) {
    // A client that goes on calling this connection must not hold up the other players.
    constexpr int calls_max = 1000;
    retired_ = why;
    if (sd_bus_release_name(bus_.get(), bus_name_of(name_).c_str()) < 0) {
        return; // the bus has ended
    }
    for (int calls = 0; calls < calls_max && sd_bus_process(bus_.get(), nullptr) > 0; ++calls) {
    }
}

int BusPlayer::answer(sd_bus_message *call, const Result<void> &done, sd_bus_error *error) {
    // A failure shows again at the descriptor of the events, which the loop watches.
    static_cast<void>(follow());
    return done ? sd_bus_reply_method_return(call, "") : set_error(error, done.failure());
}

std::optional<ActivePlaylist> BusPlayer::active_playlist() const {
    const bool still = active_playlist_ && link_.mirror().session().tsid == active_playlist_->tsid;
    return still ? active_playlist_ : std::nullopt;
}

// If a signal cannot be sent, readers miss it; the end of the connection ends the program.
void BusPlayer::tell_changes() {
    const PlayerView before = std::exchange(view_, view_of(link_.mirror()));
    const TrackWindow window_before = window_;
    window_ = next_window(window_, link_.mirror());
    if (std::vector<const char *> names = changed_properties(before, view_); !names.empty()) {
        tell_properties(player_interface, std::move(names));
    }
    if (link_.take_jump()) {
        const double now_ms = link_.mirror().position_ms(std::chrono::steady_clock::now());
        sd_bus_emit_signal(bus_.get(), object_path, player_interface, "Seeked", "x",
                           static_cast<int64_t>(now_ms * 1000));
    }
    tell_track_list(window_before, before.song);
    tell_playlists();
}

void BusPlayer::tell_track_list(const TrackWindow &before, const Song &song_before) {
    if (window_ != before) {
        tell_properties(track_list_interface, {"Tracks"});
        const Message signal = track_list_signal(bus_.get(), "TrackListReplaced");
        if (signal && append_paths(signal.get(), track_paths(window_)) >= 0 &&
            sd_bus_message_append(signal.get(), "o", view_.song.path.c_str()) >= 0) {
            sd_bus_send(bus_.get(), signal.get(), nullptr);
        }
    } else if (view_.song.path == song_before.path && view_.song != song_before) {
        const Message signal = track_list_signal(bus_.get(), "TrackMetadataChanged");
        if (signal && sd_bus_message_append(signal.get(), "o", view_.song.path.c_str()) >= 0 &&
            append_metadata(signal.get(), view_.song) >= 0) {
            sd_bus_send(bus_.get(), signal.get(), nullptr);
        }
    }
}

void BusPlayer::tell_playlists() {
    std::vector<const char *> names;
    if (link_.take_source_news()) {
        const uint32_t before = std::exchange(playlist_count_, count_playlists(link_.player()));
        if (before != playlist_count_) {
            names.push_back("PlaylistCount");
        }
    }
    const auto active = active_playlist();
    const uint64_t active_tsid = active ? active->tsid : 0;
    if (std::exchange(shown_playlist_tsid_, active_tsid) != active_tsid) {
        names.push_back("ActivePlaylist");
    }
    if (!names.empty()) {
        tell_properties(playlists_interface, std::move(names));
    }
}

int BusPlayer::tell_properties(const char *interface, std::vector<const char *> names) {
    std::vector<char *> list;
    std::transform(names.begin(), names.end(), std::back_inserter(list),
                   [](const char *name) { return const_cast<char *>(name); });
    list.push_back(nullptr);
    return sd_bus_emit_properties_changed_strv(bus_.get(), object_path, interface, list.data());
}

} // namespace vantro::mpris
