// The subsystems whose changes a client can wait for.
#ifndef VANTRO_BRIDGES_MPD_SUBSYSTEMS_H
#define VANTRO_BRIDGES_MPD_SUBSYSTEMS_H

#include <array>
#include <bitset>
#include <cstddef>
#include <string_view>

namespace vantro::mpd {

enum class Subsystem {
    database,
    update,
    stored_playlist,
    playlist,
    player,
    mixer,
    output,
    options,
    partition,
    sticker, // sticker, neighbor and mount never change here, but clients name them.
    subscription,
    message,
    neighbor,
    mount
};

constexpr std::array<std::string_view, 14> subsystem_names = {
    "database", "update",    "stored_playlist", "playlist",     "player",  "mixer",    "output",
    "options",  "partition", "sticker",         "subscription", "message", "neighbor", "mount"};

using Subsystems = std::bitset<subsystem_names.size()>;

inline Subsystems only(Subsystem which) {
    return Subsystems().set(static_cast<size_t>(which));
}

// Everything that a restart of the service may have changed.
inline Subsystems of_a_player() {
    Subsystems all;
    for (const Subsystem each :
         {Subsystem::database, Subsystem::stored_playlist, Subsystem::playlist, Subsystem::player,
          Subsystem::mixer, Subsystem::output, Subsystem::options}) {
        all |= only(each);
    }
    return all;
}

} // namespace vantro::mpd

#endif
