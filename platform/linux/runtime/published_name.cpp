#include "platform/linux/runtime/published_name.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "platform/linux/base/socket_timeout.h"
#include "platform/linux/runtime/runtime_directory.h"
#include "platform/portable/guards.h"

namespace vantro::platform {

namespace {

// Only for the owner: a process that may open the file can lock it, and so block the name.
constexpr mode_t lock_mode = 0600;
constexpr std::string_view lock_suffix = ".lock";
// The framework decides who may use a service, not the file's mode.
constexpr mode_t socket_mode = 0666;
constexpr int backlog = 1024;

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

// Binds and listens under a temporary name, and renames the socket when it is ready.
UniqueFd listen_at(const Place &place, int lock) {
    // The temporary name is short, since the final one may not fit a socket address. It is the same
    // for every owner of the lock file: if a process dies here, the next one finds its socket.
    struct stat status;
    if (::fstat(lock, &status) != 0) {
        return UniqueFd();
    }
    const std::string temporary = ".new." + std::to_string(status.st_ino);
    struct sockaddr_un address;
    UniqueFd socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int directory = place.directory.get();
    if (!socket || !make_address(address, descriptor_path(directory, temporary))) {
        return UniqueFd();
    }
    ::unlinkat(directory, temporary.c_str(), 0);
    if (::bind(socket.get(), reinterpret_cast<const struct sockaddr *>(&address), sizeof address) !=
        0) {
        return UniqueFd();
    }
    if (::fchmodat(directory, temporary.c_str(), socket_mode, 0) != 0 ||
        ::listen(socket.get(), backlog) != 0 ||
        ::renameat(directory, temporary.c_str(), directory, place.name.c_str()) != 0) {
        const KeepErrno keep;
        ::unlinkat(directory, temporary.c_str(), 0);
        return UniqueFd();
    }
    return socket;
}

} // namespace

// The last owner may remove the file between opening and locking: try again.
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

UniqueFd PublishedName::publish(std::string_view path) {
    if (path.ends_with(lock_suffix)) {
        errno = ENOENT; // otherwise its socket would replace another name's lock
        return UniqueFd();
    }
    Place place = make_place(path);
    if (!place) {
        return UniqueFd();
    }
    lock_name_ = place.name + std::string(lock_suffix);
    lock_ = take_lock(place.directory.get(), lock_name_);
    if (!lock_) {
        return UniqueFd();
    }
    UniqueFd socket = listen_at(place, lock_.get());
    directory_ = std::move(place.directory);
    name_ = socket ? std::move(place.name) : std::string();
    return socket;
}

void PublishedName::withdraw() {
    if (!lock_) {
        return;
    }
    const KeepErrno keep;
    if (!name_.empty()) {
        ::unlinkat(directory_.get(), name_.c_str(), 0);
    }
    ::unlinkat(directory_.get(), lock_name_.c_str(), 0);
    lock_.reset();
    directory_.reset();
}

void PublishedName::forget() {
    lock_.reset();
    directory_.reset();
}

static UniqueFd connect_below(RuntimeRoot root, std::string_view path) {
    const Place place = find_place(path, root);
    if (!place) {
        return UniqueFd();
    }
    // The socket itself first, so that a link in its place is not followed.
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
    if (open_timeout_ms >= 0) {
        set_socket_timeout(socket.get(), open_timeout_ms);
    }
    if (::connect(socket.get(), reinterpret_cast<const struct sockaddr *>(&address),
                  sizeof address) != 0) {
        // A blocking socket fails with EAGAIN only after a timeout.
        errno = errno == EAGAIN ? ETIMEDOUT : errno;
        const KeepErrno keep;
        socket.reset();
    }
    return socket;
}

UniqueFd connect_to_name(std::string_view path) {
    return open_in_either([path](RuntimeRoot root) { return connect_below(root, path); });
}

} // namespace vantro::platform
