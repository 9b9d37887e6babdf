// The functions of libmpv that are used here.
//
// The library is loaded when a player is first given something to play: it brings some two hundred
// others along, whose memory a service that never plays does not pay for, and without it the
// service still runs. Loading takes most of the time from the first play to its sound. Its header
// gives the types, so that a function which changes does not compile.
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

// Loads it if it is not loaded; it then stays. Never null. Any
// thread.
Result<const MpvLibrary *> mpv_library();

// Any thread; does not wait for one that loads it.
bool mpv_library_is_loaded();

} // namespace vantro::service::sound

#endif
