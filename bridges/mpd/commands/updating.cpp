// Reading the music again.
#include "bridges/mpd/ack.h"
#include "bridges/mpd/commands/handlers.h"

namespace vantro::mpd {

TaskPtr run_update(Context &, Arguments) {
    throw Ack(AckCode::permission, "the service notices changes of the music by itself");
}

} // namespace vantro::mpd
