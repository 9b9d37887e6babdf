// A player as an MPRIS media player: a connection to the bus, its name, and its objects.
#ifndef VANTRO_BRIDGES_MPRIS_BUS_BUS_PLAYER_H
#define VANTRO_BRIDGES_MPRIS_BUS_BUS_PLAYER_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <vantro/vantro.hpp>

#include "bridges/mpris/object_names.h"
#include "bridges/mpris/player_link.h"
#include "bridges/mpris/player_view.h"

namespace vantro::mpris {

inline constexpr const char *object_path = "/org/mpris/MediaPlayer2";
inline constexpr const char *root_interface = "org.mpris.MediaPlayer2";
inline constexpr const char *player_interface = "org.mpris.MediaPlayer2.Player";
inline constexpr const char *track_list_interface = "org.mpris.MediaPlayer2.TrackList";
inline constexpr const char *playlists_interface = "org.mpris.MediaPlayer2.Playlists";

// The playlist from which this program made the current track session, if any.
struct ActivePlaylist {
    uint64_t tsid = 0;
    PlaylistNode node;
    std::string name;
};

// Every player needs its own connection: all players have their object at the same path, and many
// clients address the connection, not the name.
class BusPlayer {
  public:
    BusPlayer(std::string name, PlayerLink link);
    BusPlayer(const BusPlayer &) = delete;
    BusPlayer &operator=(const BusPlayer &) = delete;

    // Connects to the session bus and makes the objects. Takes the name last, when every call of a
    // client can be answered. @return 0, or a negative error number; -EEXIST if the name is taken.
    int open(sd_event *loop);

    // Reads the player's events, and sends signals for the changes. @return success, or the reason
    // for which the player can no longer be followed.
    Result<void> follow();

    // Gives up the name, and answers every call that arrived before with the reason. Without that,
    // the end of the connection would tell the callers only that no answer comes.
    void retire(const Failure &why);
    // The reason, if it is retired. Methods and settings are then refused with it.
    const std::optional<Failure> &retired() const { return retired_; }

    // Answers a call that was a command for the player, after the signals of its effect.
    int answer(sd_bus_message *call, const Result<void> &done, sd_bus_error *error);

    // For the handlers of the interfaces.
    const std::string &name() const { return name_; }
    PlayerLink &link() { return link_; }
    const PlayerView &view() const { return view_; }
    const TrackWindow &window() const { return window_; }
    uint32_t playlist_count() const { return playlist_count_; }
    std::optional<ActivePlaylist> active_playlist() const;
    void set_active_playlist(ActivePlaylist playlist) { active_playlist_ = std::move(playlist); }

  private:
    struct CloseBus {
        void operator()(sd_bus *bus) const { sd_bus_flush_close_unref(bus); }
    };

    void tell_changes();
    void tell_track_list(const TrackWindow &before, const Song &song_before);
    void tell_playlists();
    int tell_properties(const char *interface, std::vector<const char *> names);

    std::string name_;
    PlayerLink link_;
    PlayerView view_;
    TrackWindow window_;
    uint32_t playlist_count_ = 0;
    std::optional<ActivePlaylist> active_playlist_;
    uint64_t shown_playlist_tsid_ = 0; // 0: none
    std::optional<Failure> retired_;
    std::unique_ptr<sd_bus, CloseBus> bus_;
};

} // namespace vantro::mpris

#endif
