#include "platform/linux/published_name.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/linux/runtime_directory.h"
#include "platform/linux/scoped.h"

namespace vantro::platform {

namespace {

constexpr mode_t lock_mode = 0644;
/* Who may use a service is decided by the framework, not by the file. */
constexpr mode_t socket_mode = 0666;
constexpr int backlog = 1024;

/** Takes the lock of a name. The file may be removed by its last holder in between: look again. */
UniqueFd take_lock(int directory, const std::string &name) {
    for (;;) {
        UniqueFd lock(::openat(directory, name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                               lock_mode));
        if (!lock) {
            return lock;
        }
        struct flock whole = {};
        whole.l_type = F_WRLCK;
        whole.l_whence = SEEK_SET;
        if (::fcntl(lock.get(), F_OFD_SETLK, &whole) != 0) {
            if (errno == EAGAIN || errno == EACCES) {
                lock.reset();
                errno = EADDRINUSE;
            }
            const KeepErrno keep;
            return UniqueFd();
        }
        struct stat locked;
        struct stat named;
        if (::fstat(lock.get(), &locked) == 0 &&
            ::fstatat(directory, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
            locked.st_ino == named.st_ino && locked.st_dev == named.st_dev) {
            return lock;
        }
    }
}

bool make_address(struct sockaddr_un &address, const std::string &path) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

} // namespace

UniqueFd PublishedName::publish(std::string_view path) {
    Place place = make_place(path);
    if (!place) {
        return UniqueFd();
    }
    UniqueFd lock = take_lock(place.directory.get(), place.name + ".lock");
    if (!lock) {
        return UniqueFd();
    }
    /* A short name first: the final one may not fit a socket address. */
    static std::atomic<unsigned> counter;
    char temporary[48];
    std::snprintf(temporary, sizeof temporary, ".new.%ld.%u", static_cast<long>(::getpid()),
                  ++counter);
    struct sockaddr_un address;
    UniqueFd socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int directory = place.directory.get();
    if (!socket || !make_address(address, descriptor_path(directory, temporary))) {
        return UniqueFd();
    }
    ::unlinkat(directory, temporary, 0);
    if (::bind(socket.get(), reinterpret_cast<const struct sockaddr *>(&address), sizeof address) !=
        0) {
        return UniqueFd();
    }
    if (::fchmodat(directory, temporary, socket_mode, 0) != 0 ||
        ::listen(socket.get(), backlog) != 0 ||
        ::renameat(directory, temporary, directory, place.name.c_str()) != 0) {
        const KeepErrno keep;
        ::unlinkat(directory, temporary, 0);
        return UniqueFd();
    }
    directory_ = std::move(place.directory);
    lock_ = std::move(lock);
    name_ = std::move(place.name);
    return socket;
}

void PublishedName::withdraw() {
    if (!lock_) {
        return;
    }
    ::unlinkat(directory_.get(), name_.c_str(), 0);
    ::unlinkat(directory_.get(), (name_ + ".lock").c_str(), 0);
    lock_.reset();
    directory_.reset();
}

void PublishedName::forget() {
    lock_.reset();
    directory_.reset();
}

UniqueFd connect_to_name(std::string_view path) {
    const Place place = find_place(path);
    if (!place) {
        return UniqueFd();
    }
    /* The socket itself first, so that a link in its place is not followed. */
    const UniqueFd target(
        ::openat(place.directory.get(), place.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!target) {
        return UniqueFd();
    }
    struct stat status;
    if (::fstat(target.get(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
        errno = ENOENT;
        return UniqueFd();
    }
    struct sockaddr_un address;
    UniqueFd socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!socket || !make_address(address, descriptor_path(target.get()))) {
        return UniqueFd();
    }
    if (::connect(socket.get(), reinterpret_cast<const struct sockaddr *>(&address),
                  sizeof address) != 0) {
        const KeepErrno keep;
        socket.reset();
    }
    return socket;
}

bool is_published(std::string_view path) {
    const Place place = find_place(path);
    return place &&
           ::faccessat(place.directory.get(), place.name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

} // namespace vantro::platform
