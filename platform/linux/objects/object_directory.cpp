#include "platform/linux/objects/object_directory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/linux/objects/ring_access.h"
#include "platform/linux/runtime/published_name.h"
#include "platform/linux/runtime/runtime_directory.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

namespace {

constexpr const char *lock_name = "lock";
constexpr const char *new_ring_name = "ring.new";
constexpr mode_t unfinished_mode = 0600;

// Limits the attempts: publishers that leave may remove a directory each time another makes it.
constexpr int attempts_max = 16;

// A read lock conflicts only with a publisher's lock, not with other readers'.
struct flock one_byte(short type, off_t byte) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

// Opens the ring again, for a separate lock on one of its bytes.
UniqueFd open_and_lock(int directory, int flags, off_t byte) {
    UniqueFd file(::openat(directory, new_ring_name, O_RDWR | flags | O_NOFOLLOW | O_CLOEXEC,
                           unfinished_mode));
    struct flock lock = one_byte(F_WRLCK, byte);
    if (file && ::fcntl(file.get(), F_OFD_SETLK, &lock) != 0) {
        const KeepErrno keep;
        file.reset();
    }
    return file;
}

// Retires the ring of a dead publisher, which notifies its readers.
void retire_old_ring(int directory) {
    const UniqueFd found(
        ::openat(directory, ring_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status;
    if (!found || ::fstat(found.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size < static_cast<off_t>(ring_file_bytes)) {
        return;
    }
    // No user may write the file, not even its owner, until its mode is changed. The rights to read
    // do not change: readers may open it meanwhile, and waiting readers may watch it.
    const mode_t mode = status.st_mode & 0777;
    ::fchmod(found.get(), mode | S_IWUSR);
    const UniqueFd ring(::openat(directory, ring_name, O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    ::fchmod(found.get(), mode & 0444);
    if (ring) {
        RingWriter::retire_file(ring.get());
    }
}

} // namespace

bool ObjectDirectory::take(std::string_view path, RingWriter &ring, const object_readers &readers) {
    for (int attempt = 1;; ++attempt) {
        Place place = make_place(std::string(path) + "/" + ring_name);
        if (place) {
            lock_ = take_lock(place.directory.get(), lock_name);
        }
        if (lock_) {
            directory_ = std::move(place.directory);
            break;
        }
        // Its last publisher removed the directory between two steps of the path resolution.
        if (errno != ENOENT || attempt == attempts_max) {
            return false;
        }
    }
    path_ = path;
    retire_old_ring(directory_.get());
    if (!make_ring(ring, readers)) {
        const KeepErrno keep;
        remove();
        close();
        return false;
    }
    return true;
}

// The file has another name until it is a complete, locked ring, so that no reader sees an
// incomplete one.
bool ObjectDirectory::make_ring(RingWriter &ring, const object_readers &readers) {
    const int directory = directory_.get();
    ::unlinkat(directory, new_ring_name, 0);
    ring_ = open_and_lock(directory, O_CREAT | O_EXCL, 0);
    second_ = ring_ ? open_and_lock(directory, 0, 1) : UniqueFd();
    if (second_ && ring.create(ring_.get()) && grant_reading(ring_.get(), readers) &&
        ::renameat(directory, new_ring_name, directory, ring_name) == 0) {
        return true;
    }
    const KeepErrno keep;
    ::unlinkat(directory, new_ring_name, 0);
    return false;
}

void ObjectDirectory::remove() {
    ::unlinkat(directory_.get(), ring_name, 0);
    ::unlinkat(directory_.get(), lock_name, 0);
    // The directory stays if the next publisher uses it already.
    if (const Place place = find_place(path_, RuntimeRoot::own)) {
        ::unlinkat(place.directory.get(), place.name.c_str(), AT_REMOVEDIR);
    }
}

void ObjectDirectory::close() {
    ring_.reset();
    second_.reset();
    lock_.reset();
    directory_.reset();
}

bool publisher_lives(int ring_file) {
    for (const off_t byte : {0, 1}) {
        struct flock lock = one_byte(F_RDLCK, byte);
        if (::fcntl(ring_file, F_OFD_GETLK, &lock) == 0 && lock.l_type == F_UNLCK) {
            return false;
        }
    }
    return true;
}

} // namespace vantro::platform
