#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_RETURN_WATCH_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_RETURN_WATCH_H

#include <array>
#include <cstdint>
#include <string_view>

#include "platform/linux/base/unique_fd.h"

namespace vantro::platform {

// Notices when a publisher may have come back: an inotify instance watches, for each of the two
// places where it may publish, the deepest existing directory on the way to its ring. So only what
// is made or removed there wakes its owner. The parent is watched for the directory's removal: the
// directory itself reports that only when no file in it is open any more.
class ReturnWatch {
  public:
    // @return whether that succeeded; errno says why not.
    bool open();
    bool is_open() const { return static_cast<bool>(inotify_); }
    void close() { inotify_.reset(); }

    // Readable once something has changed since look().
    int descriptor() const { return inotify_.get(); }
    // Notes what is there now. What appears later makes the descriptor readable.
    void look(std::string_view relative);

  private:
    // Each returns whether there is now another watch than before.
    bool move_watches(std::string_view relative);
    bool move_watch(int &watch, int directory, uint32_t events) const;

    UniqueFd inotify_;
    std::array<int, 4> watches_{};
};

} // namespace vantro::platform

#endif
