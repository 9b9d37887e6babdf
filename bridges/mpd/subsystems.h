// What a client can wait for.
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
    sticker, // These have nothing to tell here, but clients name them.
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

// All that another run of the service may have made different.
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
