#include "platform/linux/objects/return_watch.h"

#include <sys/inotify.h>

#include <array>
#include <utility>

#include "platform/linux/objects/ring_inotify.h"
#include "platform/linux/runtime/runtime_directory.h"

namespace vantro::platform {

namespace {

// Limits the attempts: directories may appear between the check and the watch.
constexpr int attempts_max = 16;

} // namespace

bool ReturnWatch::open() {
    inotify_ = make_inotify();
    watches_.fill(-1);
    return is_open();
}

void ReturnWatch::look(std::string_view relative) {
    alignas(struct inotify_event) std::array<char, 4096> events;
    // Removing a watch is an event too.
    for (int attempt = 0; attempt < attempts_max; ++attempt) {
        while (::read(inotify_.get(), events.data(), events.size()) > 0) {
        }
        if (!move_watches(relative)) {
            break; // nothing has changed since the watches began
        }
    }
}

bool ReturnWatch::move_watches(std::string_view relative) {
    bool moved = false;
    auto watch = watches_.begin();
    for (const RuntimeRoot root : {RuntimeRoot::user, RuntimeRoot::system}) {
        const DeepestDirectory deepest = deepest_directory(relative, root);
        moved = move_watch(*watch++, deepest.directory.get(), IN_CREATE | IN_MOVED_TO) || moved;
        moved = move_watch(*watch++, deepest.parent.get(), IN_DELETE | IN_MOVED_FROM) || moved;
    }
    return moved;
}

bool ReturnWatch::move_watch(int &watch, int directory, uint32_t events) const {
    const int found = directory >= 0
                          ? ::inotify_add_watch(inotify_.get(), descriptor_path(directory).c_str(),
                                                events | IN_ONLYDIR)
                          : -1;
    const int before = std::exchange(watch, found);
    if (found != before && before >= 0) {
        ::inotify_rm_watch(inotify_.get(), before);
    }
    return found != before;
}

} // namespace vantro::platform
