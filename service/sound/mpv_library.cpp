#include "service/sound/mpv_library.h"

#include <atomic>
#include <cerrno>

#include <dlfcn.h>

#include "common/locks.h"

namespace vantro::service::sound {

namespace {

// The soname names one version of the interface; other versions have other sonames.
constexpr const char *library_name = "libmpv.so.2";

template <typename Function>
bool find(void *library, const char *name, Function &function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

bool find_all(void *library, MpvLibrary &mpv) {
    return find(library, "mpv_create", mpv.create) &&
           find(library, "mpv_initialize", mpv.initialize) &&
           find(library, "mpv_terminate_destroy", mpv.terminate_destroy) &&
           find(library, "mpv_set_option_string", mpv.set_option_string) &&
           find(library, "mpv_set_property", mpv.set_property) &&
           find(library, "mpv_get_property", mpv.get_property) &&
           find(library, "mpv_observe_property", mpv.observe_property) &&
           find(library, "mpv_command", mpv.command) &&
           find(library, "mpv_command_node", mpv.command_node) &&
           find(library, "mpv_free_node_contents", mpv.free_node_contents) &&
           find(library, "mpv_request_log_messages", mpv.request_log_messages) &&
           find(library, "mpv_stream_cb_add_ro", mpv.stream_cb_add_ro) &&
           find(library, "mpv_wait_event", mpv.wait_event) &&
           find(library, "mpv_wakeup", mpv.wakeup) && find(library, "mpv_hook_add", mpv.hook_add) &&
           find(library, "mpv_hook_continue", mpv.hook_continue) &&
           find(library, "mpv_error_string", mpv.error_string);
}

std::atomic<bool> loaded = false;

} // namespace

Result<const MpvLibrary *> mpv_library() {
    static Mutex mutex;
    static MpvLibrary mpv;
    const MutexLock guard(mutex);
    if (!loaded) {
        void *const library = dlopen(library_name, RTLD_NOW | RTLD_LOCAL);
        if (!library || !find_all(library, mpv)) {
            const char *const error = dlerror();
            return Error(Error::Origin::library, ELIBACC, error ? error : library_name);
        }
        loaded = true;
    }
    return &mpv;
}

bool mpv_library_is_loaded() {
    return loaded;
}

} // namespace vantro::service::sound
