#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_RETURN_WATCH_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_RETURN_WATCH_H

#include <array>
#include <cstdint>
#include <string_view>

#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// Notices when a publisher may have returned: an inotify instance watches, for each of the two
// places where it may publish, the deepest existing directory on the path to its ring. So only
// files made or removed there wake the thread. The parent is watched for the directory's removal:
// the directory itself reports that only when no file in it is open any more.
class ReturnWatch {
  public:
    // @return false with errno on failure.
    bool open();
    bool is_open() const { return static_cast<bool>(inotify_); }
    void close() { inotify_.reset(); }

    // Readable once something has changed since look().
    int descriptor() const { return inotify_.get(); }
    // Records the present state. Later changes make the descriptor readable.
    void look(std::string_view relative);

  private:
    // Each returns whether the watch has changed.
    bool move_watches(std::string_view relative);
    bool move_watch(int &watch, int directory, uint32_t events) const;

    UniqueFd inotify_;
    std::array<int, 4> watches_{};
};

} // namespace vantro::platform

#endif
