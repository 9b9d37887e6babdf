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

// A directory of objects that this process publishes in: the lock on its file "lock", and its ring,
// which is locked as well. The first keeps a second publisher out, also while there is no ring; the
// second tells the readers of this very ring whether its publisher lives.
//
// The host tells of the end of an open file first and lets go of its lock then. A reader that began
// to watch between the two would find the publisher alive and hear no more. So the ring is open
// twice, each time with a lock on a byte of its own, and one lock that is gone is death: when the
// second end is told, whichever it is, the first lock is free.
class ObjectDirectory {
  public:
    // Becomes the publisher, whose ring those readers may read. @return whether it did; errno says
    // why not.
    bool take(std::string_view path, RingWriter &ring, const object_readers &readers = everybody);

    // Removes ring, lock and directory, while the locks are still held.
    void remove();

    // Lets go of both locks; in a child of fork, of its copies.
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

// Whether the publisher of a ring lives, as the locks on the ring tell.
bool publisher_lives(int ring_file);

} // namespace vantro::platform

#endif
