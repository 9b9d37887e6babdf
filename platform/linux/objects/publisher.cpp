// The publisher's interface: composes changes, checks them against the limits, and appends them.
#include <vantro/platform/objects.h>

#include <pthread.h>

#include <array>
#include <cerrno>
#include <memory>
#include <new>
#include <string_view>

#include "common/locks.h"
#include "platform/linux/objects/object_directory.h"
#include "platform/linux/objects/object_reader.h"
#include "platform/linux/runtime/platform_path.h"
#include "platform/portable/change_line.h"
#include "platform/portable/guards.h"
#include "platform/portable/object_state.h"

using namespace vantro::platform;
using vantro::Mutex;
using vantro::MutexLock;

namespace {

// Guards the list of publishers. It is taken before a publisher's own lock, and held together with
// all of those across a fork, so that every publisher is consistent in the child. It has no
// destructor, so it outlives all other objects at the end of the process.
constinit Mutex publishers_lock;

} // namespace

struct object_publisher {
    Mutex lock ACQUIRED_AFTER(publishers_lock);
    ObjectDirectory directory GUARDED_BY(lock);
    RingWriter ring GUARDED_BY(lock);
    ObjectState state GUARDED_BY(lock); // the state in the ring
    bool abandoned GUARDED_BY(lock) = false;
    int bell_holders GUARDED_BY(lock) = 0;
    bool bell_due GUARDED_BY(lock) = false;
    object_publisher *next GUARDED_BY(publishers_lock) = nullptr; // in the list of all publishers
    std::array<char, OBJECT_CHANGE_MAX + 1> text GUARDED_BY(lock);

    int publish(std::string_view change) REQUIRES(lock);
    void ring_bell_if_due() REQUIRES(lock);
    void abandon_in_child() REQUIRES(lock);
    void retire() REQUIRES(lock);
};

namespace {

object_publisher *publishers GUARDED_BY(publishers_lock) = nullptr;

// The analysis cannot express the locks of all publishers.
void hold_all() REQUIRES(publishers_lock) NO_THREAD_SAFETY_ANALYSIS {
    for (object_publisher *one = publishers; one; one = one->next) {
        one->lock.lock();
    }
}
void release_all() REQUIRES(publishers_lock) NO_THREAD_SAFETY_ANALYSIS {
    for (object_publisher *one = publishers; one; one = one->next) {
        one->lock.unlock();
    }
}

void before_fork() ACQUIRE(publishers_lock) {
    publishers_lock.lock();
    hold_all();
}
void after_fork_in_parent() RELEASE(publishers_lock) {
    release_all();
    publishers_lock.unlock();
}
void after_fork_in_child() RELEASE(publishers_lock) {
    for (object_publisher *one = publishers; one; one = one->next) {
        one->lock.assume_held(); // since before_fork()
        one->abandon_in_child();
    }
    release_all();
    publishers_lock.unlock();
}

// Takes the directory and adds the publisher to the list, without a fork in between: a child that
// does not find the publisher in the list would hold its lock beyond its parent's death.
bool take_and_enlist(object_publisher *publisher, std::string_view directory,
                     const object_readers &readers) {
    static const int watches_fork =
        pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
    static_cast<void>(watches_fork);
    const MutexLock guard(publishers_lock);
    const MutexLock own_guard(publisher->lock);
    if (!publisher->directory.take(directory, publisher->ring, readers)) {
        return false;
    }
    publisher->next = publishers;
    publishers = publisher;
    return true;
}

void strike_off(object_publisher *publisher) {
    const MutexLock guard(publishers_lock);
    for (object_publisher **link = &publishers; *link; link = &(*link)->next) {
        if (*link == publisher) {
            *link = publisher->next;
            return;
        }
    }
}

int error_of(ObjectState::Outcome outcome) {
    switch (outcome) {
    case ObjectState::Outcome::applied:
        return 0;
    case ObjectState::Outcome::object_too_long:
        return EMSGSIZE;
    case ObjectState::Outcome::all_too_long:
        return ENOSPC;
    case ObjectState::Outcome::malformed:
        break;
    }
    return EINVAL;
}

bool may_be_published(const char *object) {
    return object && is_object_name(object) && std::string_view(object) != all_objects &&
           std::string_view(object).size() <= OBJECT_NAME_MAX;
}

} // namespace

int object_publisher::publish(std::string_view change) {
    // The snapshot has the state before the change, so it comes before the change.
    if (ring.snapshot_due(state.bytes(), change.size())) {
        std::string snapshot;
        snapshot.reserve(state.bytes());
        state.append_all(snapshot);
        ring.append(RecordKind::snapshot, snapshot);
    }
    if (const int error = error_of(state.apply(change, ring.tail())); error != 0) {
        return fail(error);
    }
    ring.append(RecordKind::change, change);
    bell_due = true;
    if (bell_holders == 0) {
        ring_bell_if_due();
    }
    return 0;
}

void object_publisher::ring_bell_if_due() {
    if (bell_due && !abandoned) {
        RingWriter::ring_bell(directory.ring_file());
    }
    bell_due = false;
}

void object_publisher::abandon_in_child() {
    abandoned = true;
    directory.close();
    ring.abandon_in_child();
}

void object_publisher::retire() {
    if (!abandoned) {
        ring.retire();
        RingWriter::ring_bell(directory.ring_file());
        directory.remove();
    }
}

struct object_publisher *object_publisher_open(const char *directory) {
    return object_publisher_open_for(directory, &everybody);
}

struct object_publisher *object_publisher_open_for(const char *directory,
                                                   const struct object_readers *readers) {
    std::string_view relative;
    if (!readers) {
        errno = EINVAL;
        return nullptr;
    }
    if (!directory || !is_platform_path(directory, relative) || !relative.starts_with("kivo/")) {
        errno = ENOENT;
        return nullptr;
    }
    const CancelDisabled no_cancel;
    try {
        auto publisher = std::make_unique<object_publisher>();
        return take_and_enlist(publisher.get(), relative, *readers) ? publisher.release() : nullptr;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

void object_publisher_close(struct object_publisher *publisher) {
    if (!publisher) {
        return;
    }
    const CancelDisabled no_cancel;
    {
        const MutexLock guard(publisher->lock);
        publisher->retire();
    }
    strike_off(publisher);
    delete publisher;
}

int object_publish(struct object_publisher *publisher, const char *object, unsigned flags,
                   const struct object_attribute *attributes, size_t count) {
    if (!publisher || !may_be_published(object) || (flags & ~unsigned{OBJECT_TRUNCATE}) != 0 ||
        (!attributes && count > 0)) {
        return fail(EINVAL);
    }
    const CancelDisabled no_cancel;
    const MutexLock guard(publisher->lock);
    if (publisher->abandoned) {
        return fail(EBADF);
    }
    kivo_result head = KIVO_OBJECT_CREATED;
    if (publisher->state.holds(object)) {
        head = flags & OBJECT_TRUNCATE ? KIVO_OBJECT_TRUNCATED : KIVO_OBJECT;
    }
    struct kivo_writer writer;
    kivo_writer_init(&writer, publisher->text.data(), publisher->text.size());
    kivo_write_object(&writer, head, object);
    for (size_t i = 0; i < count; ++i) {
        const struct object_attribute &attribute = attributes[i];
        if (attribute.value && !is_encoding(attribute.encoding)) {
            return fail(EINVAL);
        }
        if (attribute.value) {
            kivo_write_attribute(&writer, attribute.name, attribute.encoding, attribute.value);
        } else {
            kivo_write_attribute_deleted(&writer, attribute.name);
        }
    }
    const ssize_t length = kivo_writer_finish(&writer);
    if (length < 0) {
        return -1;
    }
    try {
        return publisher->publish({writer.text, static_cast<size_t>(length)});
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}

void object_hold_bell(struct object_publisher *publisher) {
    if (!publisher) {
        return;
    }
    const CancelDisabled no_cancel;
    const MutexLock guard(publisher->lock);
    ++publisher->bell_holders;
}

void object_release_bell(struct object_publisher *publisher) {
    if (!publisher) {
        return;
    }
    const CancelDisabled no_cancel;
    const KeepErrno keep_errno;
    const MutexLock guard(publisher->lock);
    if (publisher->bell_holders > 0) { // in case of a call without object_hold_bell()
        --publisher->bell_holders;
    }
    publisher->ring_bell_if_due();
}

int object_delete(struct object_publisher *publisher, const char *object) {
    if (!publisher || !may_be_published(object)) {
        return fail(EINVAL);
    }
    const CancelDisabled no_cancel;
    const MutexLock guard(publisher->lock);
    if (publisher->abandoned) {
        return fail(EBADF);
    }
    if (!publisher->state.holds(object)) {
        return fail(ENOENT);
    }
    struct kivo_writer writer;
    kivo_writer_init(&writer, publisher->text.data(), publisher->text.size());
    kivo_write_object(&writer, KIVO_OBJECT_DELETED, object);
    const ssize_t length = kivo_writer_finish(&writer);
    try {
        return publisher->publish({writer.text, static_cast<size_t>(length)});
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}
