// The reading side of objects.
//
// A reader continues at `position_` in the ring. A reader that is new, or was overtaken by the
// publisher, first gives the texts in `pending_`, which make up the present state of the objects.
// `unsettled_` is false only while a read has nothing to do but look whether something was
// appended, so a read that finds nothing new is a few loads.
//
// A reader's own lock guards everything that is not atomic. find_reader() takes no lock, since a
// descriptor is not closed while another thread is in a call on it.
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
#include "platform/linux/objects/poll_descriptor.h"
#include "platform/linux/objects/ring.h"
#include "platform/linux/objects/shared_watches.h"
#include "platform/linux/objects/wake_bell.h"
#include "platform/linux/runtime/runtime_directory.h"

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
    int wait(int timeout_ms);
    void wake() { bell_.ring(); }
    int poll_descriptor();
    int settle();
    // Ends the watches, if there are any. Must be called before the reader is destroyed.
    void end_watches();

    // In a child of fork: closes the copies, but keeps the descriptor's number taken.
    void abandon_in_child();

    ObjectReader *next = nullptr; // in the list of all, under the table's lock

  private:
    static std::unique_ptr<ObjectReader> open_below(RuntimeRoot root, std::string_view relative);
    enum class Got { change, nothing, again, gone, corrupt };

    bool quiet() const;
    bool is_read(std::string_view object) const { return object_.empty() || object == object_; }
    // Makes `current_` the next text to give. May throw std::bad_alloc.
    Got fetch();
    // One attempt of fetch(). @return `again` where the ring was overwritten meanwhile.
    Got find_next();
    // Reads on up to the position `end`, until there is a text to give.
    Got follow(uint64_t end);
    // Makes `pending_` from the newest snapshot and the changes after it.
    Got start_over();
    Got load_state(ObjectState &state, uint64_t &position);
    void give_state(const ObjectState &state);
    // Makes the change in `record_` the current text, if its object is one that is read.
    Got take_change();
    // Whether there is a text to give. May throw std::bad_alloc.
    bool has_input() { return fetch() != Got::nothing; }
    // Looks whether the publisher lives, and then the same.
    bool has_input_or_ended();
    // Watches the ring for a wait, where there is no watch, and looks for input.
    // @return NOTIFY_INPUT, 0, or -1 with errno.
    int watch_and_look(bool publisher_closed);
    void end_armed_watch();

    UniqueFd ring_file_;
    RingView ring_;
    std::string object_; // the one to read; empty for all

    std::mutex lock_;
    std::atomic<uint64_t> position_{0};
    std::atomic<bool> unsettled_{true};
    bool must_start_over_ = true;
    bool is_new_ = true; // has not given a text yet
    bool gone_ = false;  // the publisher has died or closed
    bool is_corrupt_ = false;

    std::string current_;
    std::vector<std::string> pending_;         // the next one last
    std::set<std::string, std::less<>> known_; // the objects that its texts have made known
    size_t known_bytes_ = 0;
    std::string record_;
    unsigned read_without_waiting_ = 0; // changes
    Notification notification_;
    WakeBell bell_;
    RingWaiter waiter_;
    PollDescriptor poll_;
};

// object_table.cpp
// The reader of a descriptor, or null. Without a lock.
ObjectReader *find_reader(int descriptor);
// Opens a reader and enters it into the table. @return its descriptor, or -1.
int open_reader(std::string_view relative, int flags);
// Removes a reader from the table and closes it. @return whether there was one.
bool close_reader(int descriptor);

} // namespace vantro::platform

#endif
