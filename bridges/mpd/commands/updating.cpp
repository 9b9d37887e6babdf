// Reading the music again.
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/service_call.h"

namespace vantro::mpd {

// The service always scans all of the music, also if a path is given.
TaskPtr run_update(Context &context, Arguments) {
    checked(context.partition.player().rescan());
    context.reply.number("updating_db", 1);
    return nullptr;
}

} // namespace vantro::mpd
