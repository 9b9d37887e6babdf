// The readers of this process, by descriptor.
#include <fcntl.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <new>

#include "common/locks.h"
#include "platform/linux/objects/object_reader.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

namespace {

// A table of two levels that is read without a lock. A chunk is made at its first use, and never
// freed.
constexpr size_t chunk_slots = 1024;
constexpr size_t chunks_max = 1024; // descriptors to 2^20, the host's own limit

using Slot = std::atomic<ObjectReader *>;
using Chunk = std::array<Slot, chunk_slots>;

// Constant-initialised and without destructors, so that a reader can be closed at any time before
// the process ends.
constinit Mutex table_lock;
// The first of all readers, which ObjectReader::next links.
ObjectReader *readers GUARDED_BY(table_lock) = nullptr;
Chunk first_chunk;
std::array<std::atomic<Chunk *>, chunks_max> chunks = {&first_chunk};

Slot *slot_of(int descriptor) {
    const auto index = static_cast<size_t>(descriptor);
    if (descriptor < 0 || index >= chunks_max * chunk_slots) {
        return nullptr;
    }
    Chunk *const chunk = chunks[index / chunk_slots].load(std::memory_order_acquire);
    return chunk ? &(*chunk)[index % chunk_slots] : nullptr;
}

void before_fork() ACQUIRE(table_lock, watches_lock) {
    table_lock.lock();
    hold_spare_instances();
    hold_shared_watches();
}
void after_fork_in_parent() RELEASE(table_lock, watches_lock) {
    release_shared_watches(false);
    release_spare_instances(false);
    table_lock.unlock();
}
void after_fork_in_child() RELEASE(table_lock, watches_lock) {
    release_shared_watches(true);
    release_spare_instances(true);
    for (ObjectReader *reader = readers; reader; reader = reader->next) {
        // Readers of the parent's own parent are no longer in the table.
        if (Slot *const slot = slot_of(reader->descriptor())) {
            *slot = nullptr;
            reader->abandon_in_child();
        }
    }
    table_lock.unlock();
}

} // namespace

ObjectReader *find_reader(int descriptor) {
    Slot *const slot = slot_of(descriptor);
    return slot ? slot->load(std::memory_order_acquire) : nullptr;
}

int open_reader(std::string_view relative, int flags) {
    if ((flags & O_ACCMODE) != O_RDONLY) {
        return fail(EACCES);
    }
    static const int watches_fork =
        pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
    static_cast<void>(watches_fork);
    const CancelDisabled no_cancel;
    try {
        std::unique_ptr<ObjectReader> reader = ObjectReader::open(relative);
        if (!reader) {
            return -1;
        }
        const int descriptor = reader->descriptor();
        const auto chunk = static_cast<size_t>(descriptor) / chunk_slots;
        if (chunk >= chunks_max) {
            return fail(EMFILE);
        }
        const MutexLock guard(table_lock);
        if (!chunks[chunk]) {
            chunks[chunk] = new Chunk{};
        }
        reader->next = readers;
        readers = reader.get();
        *slot_of(descriptor) = reader.release();
        return descriptor;
    } catch (const std::bad_alloc &) {
        return fail(ENOMEM);
    }
}

bool close_reader(int descriptor) {
    Slot *const slot = slot_of(descriptor);
    if (!slot) {
        return false;
    }
    const CancelDisabled no_cancel;
    const std::unique_ptr<ObjectReader> reader(slot->exchange(nullptr));
    if (!reader) {
        return false;
    }
    reader->end_watches();
    const MutexLock guard(table_lock);
    for (ObjectReader **link = &readers; *link; link = &(*link)->next) {
        if (*link == reader.get()) {
            *link = reader->next;
            break;
        }
    }
    return true;
}

} // namespace vantro::platform
