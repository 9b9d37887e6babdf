// Reading the music again.
#include "bridges/mpd/commands/handlers.h"
#include "bridges/mpd/partition.h"
#include "bridges/mpd/service_call.h"

namespace vantro::mpd {

// All of it, whatever was asked for: the service looks at nothing less.
TaskPtr run_update(Context &context, Arguments) {
    checked(context.partition.player().rescan());
    context.reply.number("updating_db", 1);
    return nullptr;
}

} // namespace vantro::mpd
