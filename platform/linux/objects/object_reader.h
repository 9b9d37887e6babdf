// The reading side of objects.
//
// A reader continues at `position_` in the ring. A reader that is new, or was overtaken by the
// publisher, first returns the texts in `pending_`, which are the present state of the objects.
// `unsettled_` is false only while a read need only check whether text was appended, so a read that
// finds nothing new takes only a few loads.
//
// A reader's own lock guards everything that is not atomic. find_reader() takes no lock, since a
// descriptor is not closed while another thread is in a call on it.
#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_OBJECT_READER_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_OBJECT_READER_H

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "common/locks.h"
#include "platform/linux/base/unique_fd.h"
#include "platform/linux/objects/notification.h"
#include "platform/linux/objects/poll_descriptor.h"
#include "platform/linux/objects/return_watch.h"
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
    ssize_t read(void *buffer, size_t length) EXCLUDES(lock_);
    int arm(int signal) EXCLUDES(lock_);
    void disarm() EXCLUDES(lock_);
    int wait(int timeout_ms) EXCLUDES(lock_);
    void wake() { bell_.ring(); }
    int poll_descriptor() EXCLUDES(lock_);
    int settle() EXCLUDES(lock_);
    int reopen() EXCLUDES(lock_);
    // Ends the watches, if there are any. Call it before the reader is destroyed, when no other
    // thread can use it.
    void end_watches();

    // In a child of fork: closes the copies, but keeps the descriptor's number taken.
    void abandon_in_child();

    ObjectReader *next = nullptr; // in the list of all readers, guarded by the table's lock

  private:
    static std::unique_ptr<ObjectReader> open_below(RuntimeRoot root, std::string_view relative);
    enum class Got { change, nothing, again, gone, corrupt };

    bool quiet() const;
    bool is_read(std::string_view object) const { return object_.empty() || object == object_; }
    // Makes `current_` the next text to return. May throw std::bad_alloc.
    Got fetch() REQUIRES(lock_);
    // One attempt of fetch(). @return `again` if the ring was overwritten meanwhile.
    Got find_next() REQUIRES(lock_);
    // Continues reading up to the position `end`, until there is a text to return.
    Got follow(uint64_t end) REQUIRES(lock_);
    // Makes `pending_` from the newest snapshot and the changes after it.
    Got start_over() REQUIRES(lock_);
    Got load_state(ObjectState &state, uint64_t &position) REQUIRES(lock_);
    void give_state(const ObjectState &state) REQUIRES(lock_);
    // Makes the change in `record_` the current text, if this reader follows its object.
    Got take_change() REQUIRES(lock_);
    // Whether there is a text to return. May throw std::bad_alloc.
    bool has_input() REQUIRES(lock_) { return fetch() != Got::nothing; }
    // Checks whether the publisher is alive, then does the same as has_input().
    bool has_input_or_ended() REQUIRES(lock_);
    // Watches the ring for a wait, if there is no watch, and checks for input.
    // @return NOTIFY_INPUT, 0, or -1 with errno.
    int watch_and_look(bool publisher_closed) EXCLUDES(lock_);
    void end_armed_watch() REQUIRES(lock_);
    // Continues with another reader's ring. @return false with errno on failure.
    bool take_over(ObjectReader &other) REQUIRES(lock_);
    bool is_away() EXCLUDES(lock_);
    // wait() for a publisher that is away.
    int wait_for_return(const Deadline &deadline, const CancelDisabled &cancel) EXCLUDES(lock_);

    // Both are open before the reader is shared, and closed only in a child of fork.
    UniqueFd ring_file_;
    RingView ring_;
    std::string object_;   // the object to read; empty for all
    std::string relative_; // its path

    Mutex lock_;
    std::atomic<uint64_t> position_{0};
    std::atomic<bool> unsettled_{true};
    bool must_start_over_ GUARDED_BY(lock_) = true;
    bool is_new_ GUARDED_BY(lock_) = true; // no text was returned yet
    bool gone_ GUARDED_BY(lock_) = false;  // the publisher has died or closed
    bool is_corrupt_ GUARDED_BY(lock_) = false;

    std::string current_ GUARDED_BY(lock_);
    std::vector<std::string> pending_ GUARDED_BY(lock_); // the next one last
    // The objects whose texts were returned.
    std::set<std::string, std::less<>> known_ GUARDED_BY(lock_);
    size_t known_bytes_ GUARDED_BY(lock_) = 0;
    std::string record_ GUARDED_BY(lock_);
    unsigned read_without_waiting_ GUARDED_BY(lock_) = 0; // changes
    Notification notification_ GUARDED_BY(lock_);
    WakeBell bell_;
    RingWaiter waiter_;
    PollDescriptor poll_ GUARDED_BY(lock_);
    ReturnWatch return_ GUARDED_BY(lock_); // open while the publisher is away, after reopen()
};

// object_table.cpp
// The reader of a descriptor, or null. Takes no lock.
ObjectReader *find_reader(int descriptor);
// Opens a reader and adds it to the table. @return its descriptor, or -1.
int open_reader(std::string_view relative, int flags);
// Removes a reader from the table and closes it. @return whether there was one.
bool close_reader(int descriptor);

} // namespace vantro::platform

#endif
