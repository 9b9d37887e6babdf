// The interfaces of a media player, each a table for sd-bus, and functions that the handlers share.
#ifndef VANTRO_BRIDGES_MPRIS_BUS_INTERFACES_H
#define VANTRO_BRIDGES_MPRIS_BUS_INTERFACES_H

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>

#include "bridges/mpris/bus/bus_player.h"
#include "bridges/mpris/bus/values.h"

namespace vantro::mpris {

// The objects' data is a BusPlayer.
const sd_bus_vtable *root_table();
const sd_bus_vtable *player_table();
const sd_bus_vtable *track_list_table();
const sd_bus_vtable *playlists_table();

// The paths of the tracks in the window.
std::vector<std::string> track_paths(const TrackWindow &window);

// The number of playlists of all sources.
uint32_t count_playlists(Player &player);

// No exception may pass through sd-bus, which is C. Here only a lack of memory throws.
template <typename Work>
int without_exceptions(Work work) noexcept {
    try {
        return work();
    } catch (const std::exception &) {
        return -ENOMEM;
    }
}

template <int (*work)(BusPlayer &, sd_bus_message *, sd_bus_error *)>
int unless_retired(void *data, sd_bus_message *message, sd_bus_error *error) {
    return without_exceptions([&] {
        auto &player = *static_cast<BusPlayer *>(data);
        return player.retired() ? set_error(error, *player.retired())
                                : work(player, message, error);
    });
}

// Turns functions that take the player and a message, to read or to fill, into handlers.

template <int (*work)(BusPlayer &, sd_bus_message *, sd_bus_error *)>
int on_call(sd_bus_message *call, void *player, sd_bus_error *error) {
    return unless_retired<work>(player, call, error);
}

template <int (*work)(BusPlayer &, sd_bus_message *)>
int on_get(sd_bus *, const char *, const char *, const char *, sd_bus_message *reply, void *player,
           sd_bus_error *) {
    return without_exceptions([&] { return work(*static_cast<BusPlayer *>(player), reply); });
}

template <int (*work)(BusPlayer &, sd_bus_message *, sd_bus_error *)>
int on_set(sd_bus *, const char *, const char *, const char *, sd_bus_message *value, void *player,
           sd_bus_error *error) {
    return unless_retired<work>(player, value, error);
}

template <bool value>
int get_constant(BusPlayer &, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "b", int{value});
}

} // namespace vantro::mpris

#endif
