// Commands that clients know but that cannot do anything here. Each is refused with the reason.
#include "bridges/mpd/ack.h"
#include "bridges/mpd/commands/handlers.h"

namespace vantro::mpd {
namespace {

[[noreturn]] void refuse(const char *why) {
    throw Ack(AckCode::permission, why);
}

} // namespace

TaskPtr run_kill(Context &, Arguments) {
    refuse("only the owner of the service can end it, not a client");
}

TaskPtr run_config(Context &, Arguments) {
    refuse("the configuration belongs to the service, which does not report it");
}

TaskPtr run_fingerprint(Context &, Arguments) {
    refuse("the service does not compute fingerprints");
}

TaskPtr run_listfiles(Context &, Arguments) {
    refuse("the catalogue contains only songs, which lsinfo lists");
}

TaskPtr run_mixramp(Context &, Arguments) {
    refuse("the player cannot fade from song to song");
}

TaskPtr run_mount(Context &, Arguments) {
    refuse("the music directories are set in the service's configuration");
}

TaskPtr run_new_partition(Context &, Arguments) {
    refuse("the players are set in the service's configuration");
}

TaskPtr run_outputset(Context &, Arguments) {
    refuse("the output has no attributes");
}

TaskPtr run_songs_own(Context &, Arguments) {
    refuse("songs belong to the catalogue: the queue can neither cut nor tag them");
}

TaskPtr run_sticker(Context &, Arguments) {
    refuse("the service stores no data about songs except those in their files");
}

} // namespace vantro::mpd
