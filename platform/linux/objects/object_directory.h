#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_OBJECT_DIRECTORY_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_OBJECT_DIRECTORY_H

#include <string>
#include <string_view>

#include <vantro/platform/objects.h>

#include "platform/linux/base/unique_fd.h"
#include "platform/linux/objects/ring.h"

namespace vantro::platform {

// The name of the ring in a directory of objects.
inline constexpr const char *ring_name = "ring";

// Every user may read.
inline constexpr object_readers everybody = {OBJECT_READERS_OWN, OBJECT_READERS_OWN, 0444};

// A directory of objects in which this process publishes. The lock on its file "lock" excludes a
// second publisher, also while there is no ring. The locks on the ring show its readers whether the
// publisher of this ring is alive.
//
// The kernel sends IN_CLOSE_WRITE before it releases a file's locks. A reader that starts to watch
// in between would see a live publisher and get no event. So the publisher holds the ring open
// twice, with a lock each, and readers treat either free lock as death: when the kernel reports the
// second close, the lock of the first is free.
class ObjectDirectory {
  public:
    // Makes this process the publisher, with a ring that `readers` may read. @return false with
    // errno on failure.
    bool take(std::string_view path, RingWriter &ring, const object_readers &readers = everybody);

    // Removes ring, lock and directory, while the locks are still held.
    void remove();

    // Releases the locks; in a child of fork, closes its copies.
    void close();

    int ring_file() const { return ring_.get(); }

  private:
    bool make_ring(RingWriter &ring, const object_readers &readers);

    std::string path_;
    UniqueFd directory_;
    UniqueFd lock_;
    UniqueFd ring_;
    UniqueFd second_;
};

// Whether the publisher of a ring is alive, judged by the locks on the ring.
bool publisher_lives(int ring_file);

} // namespace vantro::platform

#endif
