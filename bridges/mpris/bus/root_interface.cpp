// org.mpris.MediaPlayer2: the identity of the player.
#include <fmt/format.h>

#include "bridges/mpris/bus/interfaces.h"

namespace vantro::mpris {

namespace {

// The player has no window, and only its service can end it: both calls have no effect.
int do_nothing(BusPlayer &, sd_bus_message *call, sd_bus_error *) {
    return sd_bus_reply_method_return(call, "");
}

int get_identity(BusPlayer &player, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "s",
                                 fmt::format("Vantro ({})", clean_text(player.name())).c_str());
}

// The player plays files of the service's catalogue only, never an address.
int get_no_texts(BusPlayer &, sd_bus_message *reply) {
    return sd_bus_message_append(reply, "as", 0);
}

constexpr uint64_t constant = SD_BUS_VTABLE_PROPERTY_CONST;

const sd_bus_vtable table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Raise", "", "", on_call<do_nothing>, 0),
    SD_BUS_METHOD("Quit", "", "", on_call<do_nothing>, 0),
    SD_BUS_PROPERTY("CanQuit", "b", on_get<get_constant<false>>, 0, constant),
    SD_BUS_PROPERTY("CanRaise", "b", on_get<get_constant<false>>, 0, constant),
    SD_BUS_PROPERTY("HasTrackList", "b", on_get<get_constant<true>>, 0, constant),
    SD_BUS_PROPERTY("Identity", "s", on_get<get_identity>, 0, constant),
    SD_BUS_PROPERTY("SupportedUriSchemes", "as", on_get<get_no_texts>, 0, constant),
    SD_BUS_PROPERTY("SupportedMimeTypes", "as", on_get<get_no_texts>, 0, constant),
    SD_BUS_VTABLE_END,
};

} // namespace

const sd_bus_vtable *root_table() {
    return table;
}

} // namespace vantro::mpris
