// The reading side of objects.
//
// A reader is somewhere in the ring, or has a picture to tell first. Its `position_` is where it
// reads on; `pending_` are texts that come before what stands there. `unsettled_` is set whenever
// a read could have anything to do but look whether something was appended: so a read with nothing
// new is a few loads.
//
// A reader's own lock guards everything that is not atomic. The table of readers is found through
// without a lock, since a descriptor is not closed while another thread is in a call on it.
#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_OBJECT_READER_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_OBJECT_READER_H

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/base/unique_fd.h"
#include "platform/linux/objects/notification.h"
#include "platform/linux/objects/ring.h"

namespace vantro::platform {

// The name under which all objects of a directory are read.
inline constexpr std::string_view all_objects = ".all";

class ObjectReader {
  public:
    // Opens a path of the form "kivo/.../OBJECT?delta", relative to the runtime directory.
    // @return null with errno. May throw std::bad_alloc.
    static std::unique_ptr<ObjectReader> open(std::string_view relative);

    int descriptor() const { return ring_file_.get(); }

    // See objects.h and notify.h.
    ssize_t read(void *buffer, size_t length);
    int arm(int signal);
    void disarm();
    // Ends a watch that nobody waits on any more; before the reader is destroyed.
    void end_watch();

    // In a child of fork: closes the copies but for the number, and leaves what may be in use.
    void abandon_in_child();

    ObjectReader *next = nullptr; // in the list of all, under the table's lock

  private:
    enum class Got { change, nothing, again, gone, noise };

    bool quiet() const;
    bool is_read(std::string_view object) const { return object_.empty() || object == object_; }
    // Makes `current_` the next text to give. May throw std::bad_alloc.
    Got fetch();
    Got find_next();
    Got follow(uint64_t end);
    Got start_over();
    Got tell();
    bool has_input();

    UniqueFd ring_file_;
    RingView ring_;
    std::string object_; // the one to read; empty for all

    std::mutex lock_;
    std::atomic<uint64_t> position_{0};
    std::atomic<bool> unsettled_{true};
    bool must_start_over_ = true;
    bool is_new_ = true; // nothing was told yet
    bool gone_ = false;  // the publisher has died or left
    bool is_noise_ = false;

    std::string current_;
    std::vector<std::string> pending_;         // the next one last
    std::set<std::string, std::less<>> known_; // the objects told of
    size_t known_bytes_ = 0;
    std::string record_;
    Notification notification_;
};

// object_table.cpp
// The reader of a descriptor, or null. Without a lock.
ObjectReader *find_reader(int descriptor);
// Opens a reader and enters it into the table. @return its descriptor, or -1.
int open_reader(std::string_view relative, int flags);
// Takes out of the table, and closes. @return whether there was one.
bool close_reader(int descriptor);

} // namespace vantro::platform

#endif
