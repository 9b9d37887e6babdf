// The functions of libmpv that this room uses.
//
// The library is loaded when a player first gets a session. It loads about two hundred other
// libraries, whose memory a service that never plays saves; and the service runs without libmpv.
// Loading does not wait for the first play, since it takes ten times as long as everything else
// between the first play and its sound, and seconds if the files are not in memory, as after the
// machine's start. libmpv's header supplies the types, so a changed function does not compile.
#ifndef VANTRO_SERVICE_SOUND_MPV_LIBRARY_H
#define VANTRO_SERVICE_SOUND_MPV_LIBRARY_H

#include <mpv/client.h>
#include <mpv/stream_cb.h>

#include "service/error.h"

namespace vantro::service::sound {

struct MpvLibrary {
    decltype(&mpv_create) create = nullptr;
    decltype(&mpv_initialize) initialize = nullptr;
    decltype(&mpv_terminate_destroy) terminate_destroy = nullptr;
    decltype(&mpv_set_option_string) set_option_string = nullptr;
    decltype(&mpv_set_property) set_property = nullptr;
    decltype(&mpv_get_property) get_property = nullptr;
    decltype(&mpv_observe_property) observe_property = nullptr;
    decltype(&mpv_command) command = nullptr;
    decltype(&mpv_command_node) command_node = nullptr;
    decltype(&mpv_free_node_contents) free_node_contents = nullptr;
    decltype(&mpv_request_log_messages) request_log_messages = nullptr;
    decltype(&mpv_stream_cb_add_ro) stream_cb_add_ro = nullptr;
    decltype(&mpv_wait_event) wait_event = nullptr;
    decltype(&mpv_wakeup) wakeup = nullptr;
    decltype(&mpv_hook_add) hook_add = nullptr;
    decltype(&mpv_hook_continue) hook_continue = nullptr;
    decltype(&mpv_error_string) error_string = nullptr;
};

// Loads the library if it is not loaded; it then stays loaded. Never null. Any thread.
Result<const MpvLibrary *> mpv_library();

// Any thread; does not wait for a thread that is loading the library.
bool mpv_library_is_loaded();

} // namespace vantro::service::sound

#endif
