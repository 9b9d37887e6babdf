// The C library's names are defined here as the linker sees them, so no name may be redirected.
#undef _FILE_OFFSET_BITS
#undef _FORTIFY_SOURCE

#include "tests/faults/inject.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <vector>

namespace vantro::faults {

namespace {

thread_local bool takes_part = false;
thread_local int64_t blocks = 0;
bool all_take_part = false;
Control own_control;
Control *shared_control = &own_control;

// Whether this call fails. Calls that cannot fail in this way are not counted.
bool fails(Kind kind, const char *name, int error) {
    Control &at = *shared_control;
    const int64_t times = at.times.load(std::memory_order_relaxed);
    if (at.kind.load(std::memory_order_relaxed) != kind || !(takes_part || all_take_part) ||
        error == 0 || (times > 1 && error == EINTR)) {
        return false;
    }
    const int64_t after = at.seen.fetch_add(1, std::memory_order_relaxed) - at.nth;
    if (after < 0 || after >= times) {
        return false;
    }
    if (at.failed.fetch_add(1, std::memory_order_relaxed) == 0) {
        strncpy(at.name, name, sizeof at.name - 1);
        at.error = error;
    }
    errno = error;
    return true;
}

bool call_fails(const char *name, const int (&errors)[variants]) {
    return fails(Kind::call, name, errors[shared_control->variant.load(std::memory_order_relaxed)]);
}

// A write to a file that was not synced: the bytes before it, and the file's length.
struct Unsynced {
    ino_t inode;
    off_t at;
    off_t size;
    std::string before;
};
// A renaming, and its folder. The file that it replaced has a temporary name.
struct Renamed {
    ino_t folder;
    std::string from;
    std::string to;
    std::string before;
};
std::mutex power_lock; // guards these
std::vector<Renamed> renamed;
std::vector<Unsynced> unsynced;
std::map<ino_t, int> files; // a descriptor of each, never closed

bool counts_writes() {
    return shared_control->kind.load(std::memory_order_relaxed) == Kind::power;
}

void note_write(int fd, off_t at, size_t size) {
    struct stat status;
    if (!counts_writes() || syscall(SYS_fstat, fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return;
    }
    std::string before(size, '\0');
    const long there = syscall(SYS_pread64, fd, before.data(), size, at);
    before.resize(there > 0 ? static_cast<size_t>(there) : 0);
    const std::lock_guard guard(power_lock);
    if (files.find(status.st_ino) == files.end()) {
        files[status.st_ino] = static_cast<int>(syscall(SYS_dup, fd));
    }
    unsynced.push_back({status.st_ino, at, status.st_size, std::move(before)});
}

void note_sync(int fd) {
    struct stat status;
    if (counts_writes() && syscall(SYS_fstat, fd, &status) == 0) {
        const std::lock_guard guard(power_lock);
        std::erase_if(unsynced, [&](const Unsynced &each) { return each.inode == status.st_ino; });
        std::erase_if(renamed, [&](const Renamed &each) { return each.folder == status.st_ino; });
    }
}

void note_rename(const char *from, const char *to) {
    struct stat status;
    const std::string before = to + std::string(".before"), target = to;
    const std::string folder = target.substr(0, target.rfind('/') + 1);
    if (counts_writes() && syscall(SYS_stat, folder.c_str(), &status) == 0) {
        syscall(SYS_unlink, before.c_str());
        syscall(SYS_link, to, before.c_str());
        const std::lock_guard guard(power_lock);
        renamed.push_back({status.st_ino, from, to, before});
    }
}

[[noreturn]] void lose_power() {
    const std::lock_guard guard(power_lock);
    for (auto each = unsynced.rbegin(); each != unsynced.rend(); ++each) {
        const int fd = files[each->inode];
        syscall(SYS_pwrite64, fd, each->before.data(), each->before.size(), each->at);
        syscall(SYS_ftruncate, fd, each->size);
    }
    for (auto each = renamed.rbegin(); each != renamed.rend(); ++each) {
        syscall(SYS_rename, each->to.c_str(), each->from.c_str());
        syscall(SYS_rename, each->before.c_str(), each->to.c_str());
    }
    kill(getpid(), SIGKILL);
    std::abort();
}

// A call on a file, which counts as one of the disk too.
bool disk_fails(const char *name, const int (&errors)[variants]) {
    if (fails(Kind::death, name, EIO)) {
        kill(getpid(), SIGKILL);
    }
    if (fails(Kind::power, name, EIO)) {
        lose_power();
    }
    const int32_t variant = shared_control->variant.load(std::memory_order_relaxed);
    return fails(Kind::disk, name, errors[variant]) || call_fails(name, errors);
}

bool is_file(int descriptor) {
    struct stat status;
    return syscall(SYS_fstat, descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

// Sending and receiving are interrupted only if they may wait.
bool packet_fails(const char *name, int flags, bool allocates) {
    return call_fails(name, {allocates ? ENOMEM : 0, flags & MSG_DONTWAIT ? 0 : EINTR});
}

bool allocation_fails(const char *name) {
    return fails(Kind::allocation, name, ENOMEM);
}

void *counted(void *block) {
    blocks += block != nullptr;
    return block;
}

// Runs before main(), since another process controls this one.
[[gnu::constructor]] void take_control() {
    const char *file = std::getenv("VANTRO_FAULTS");
    if (!file) {
        return;
    }
    const int descriptor = open(file, O_RDWR | O_CLOEXEC);
    void *mapped =
        mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    close(descriptor);
    if (mapped == MAP_FAILED) {
        std::abort();
    }
    shared_control = static_cast<Control *>(mapped);
    all_take_part = true;
    unsetenv("VANTRO_FAULTS"); // programs that this one starts take no part
}

} // namespace

Control &control() {
    return *shared_control;
}

bool &counting() {
    return takes_part;
}

int64_t live_blocks() {
    return blocks;
}

} // namespace vantro::faults

using namespace vantro::faults;

// Each looks up the C library's function at its first use, which may be before any constructor.
#define REAL(name)                                                                                 \
    static decltype(&(name)) real;                                                                 \
    if (!real) {                                                                                   \
        real = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name));                       \
    }

// A call and the errors that it can give, as many as there are variants.
#define WRAP(result, name, parameters, arguments, failure, ...)                                    \
    result name parameters {                                                                       \
        REAL(name)                                                                                 \
        static constexpr int errors[variants] = {__VA_ARGS__};                                     \
        return call_fails(#name, errors) ? failure : real arguments;                               \
    }

#define WRAP_DISK(result, name, parameters, arguments, failure, ...)                               \
    result name parameters {                                                                       \
        REAL(name)                                                                                 \
        static constexpr int errors[variants] = {__VA_ARGS__};                                     \
        return disk_fails(#name, errors) ? failure : real arguments;                               \
    }

#define WRAP_SYNC(name)                                                                            \
    int name(int fd) {                                                                             \
        REAL(name)                                                                                 \
        const int result = disk_fails(#name, {EIO, ENOSPC}) ? -1 : real(fd);                       \
        if (result == 0) {                                                                         \
            note_sync(fd);                                                                         \
        }                                                                                          \
        return result;                                                                             \
    }

// The same for open() and openat(), which take a mode where they may make a file.
#define WRAP_OPEN(name, parameters, arguments)                                                     \
    int name parameters {                                                                          \
        REAL(name)                                                                                 \
        va_list rest;                                                                              \
        va_start(rest, flags);                                                                     \
        const mode_t mode = flags & (O_CREAT | __O_TMPFILE) ? va_arg(rest, mode_t) : 0;            \
        va_end(rest);                                                                              \
        return call_fails(#name, {EMFILE, ENOMEM, EIO}) ? -1 : real arguments;                     \
    }

// On 64-bit machines the same call under the name that has 64-bit offsets.
#define ALSO(name) extern __typeof(name) name##64 __attribute__((alias(#name)))
#define ALSO_STAT(name, ...) int name##64(__VA_ARGS__) noexcept __attribute__((alias(#name)))

#pragma GCC visibility push(default)
// clang-format off
extern "C" {

void *malloc(size_t size) noexcept {
    REAL(malloc)
    return allocation_fails("malloc") ? nullptr : counted(real(size));
}

void *calloc(size_t count, size_t size) noexcept {
    REAL(calloc)
    return allocation_fails("calloc") ? nullptr : counted(real(count, size));
}

void *realloc(void *block, size_t size) noexcept {
    REAL(realloc)
    if (allocation_fails("realloc")) {
        return nullptr;
    }
    void *moved = real(block, size);
    blocks += !block && moved;
    blocks -= block && !moved; // freed, with a size of 0
    return moved;
}

int posix_memalign(void **block, size_t alignment, size_t size) noexcept {
    REAL(posix_memalign)
    const int error = allocation_fails("posix_memalign") ? ENOMEM : real(block, alignment, size);
    blocks += error == 0;
    return error;
}

void *aligned_alloc(size_t alignment, size_t size) noexcept {
    void *block = nullptr;
    return posix_memalign(&block, alignment, size) == 0 ? block : nullptr;
}

// The look-up may itself free a block of an earlier one. That block is leaked, to end the
// recursion.
void free(void *block) noexcept {
    static thread_local bool looking_up;
    if (looking_up) {
        return;
    }
    looking_up = true;
    REAL(free)
    looking_up = false;
    blocks -= block != nullptr;
    real(block);
}

// The sanitizers' strdup() would not call this malloc().
char *strdup(const char *text) noexcept {
    const size_t size = strlen(text) + 1;
    void *copy = malloc(size);
    return copy ? static_cast<char *>(memcpy(copy, text, size)) : nullptr;
}

ssize_t send(int fd, const void *from, size_t size, int flags) {
    REAL(send)
    return packet_fails("send", flags, true) ? -1 : real(fd, from, size, flags);
}

ssize_t recv(int fd, void *to, size_t size, int flags) {
    REAL(recv)
    return packet_fails("recv", flags, false) ? -1 : real(fd, to, size, flags);
}

ssize_t sendmsg(int fd, const msghdr *message, int flags) {
    REAL(sendmsg)
    return packet_fails("sendmsg", flags, true) ? -1 : real(fd, message, flags);
}

ssize_t recvmsg(int fd, msghdr *message, int flags) {
    REAL(recvmsg)
    const bool allocates = message->msg_iovlen > 8; // as the kernel does for a longer vector
    return packet_fails("recvmsg", flags, allocates) ? -1 : real(fd, message, flags);
}

// Only the commands that can fail on a good descriptor.
int fcntl(int fd, int command, ...) {
    REAL(fcntl)
    va_list rest;
    va_start(rest, command);
    void *argument = va_arg(rest, void *);
    va_end(rest);
    const bool duplicates = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    const bool locks = command == F_OFD_SETLK || command == F_OFD_GETLK || command == F_SETLK ||
                       command == F_SETLKW || command == F_GETLK;
    const bool failed = (duplicates || locks) && call_fails("fcntl", {duplicates ? EMFILE : ENOLCK});
    return failed ? -1 : real(fd, command, argument);
}
ALSO(fcntl);

WRAP_OPEN(open, (const char *path, int flags, ...), (path, flags, mode))
WRAP_OPEN(openat, (int folder, const char *path, int flags, ...), (folder, path, flags, mode))
ALSO(open);
ALSO(openat);
// The call that fortified programs use to open an existing file.
WRAP(int, __openat64_2, (int folder, const char *path, int flags), (folder, path, flags), -1, EMFILE, ENOMEM, EIO)
WRAP(ssize_t, read, (int fd, void *to, size_t size), (fd, to, size), -1, EIO, ENOMEM, EINTR)
WRAP_DISK(ssize_t, pread, (int fd, void *to, size_t size, off_t at), (fd, to, size, at), -1, EIO, ENOMEM)
WRAP(ssize_t, preadv, (int fd, const iovec *to, int count, off_t at), (fd, to, count, at), -1, EIO, ENOMEM)
ssize_t write(int fd, const void *from, size_t size) {
    REAL(write)
    const bool waits = (syscall(SYS_fcntl, fd, F_GETFL) & O_NONBLOCK) == 0;
    const bool failed = is_file(fd) ? disk_fails("write", {ENOSPC, EIO, EINTR})
                                    : call_fails("write", {0, 0, waits ? EINTR : 0});
    if (!failed) {
        note_write(fd, lseek(fd, 0, SEEK_CUR), size);
    }
    return failed ? -1 : real(fd, from, size);
}
WRAP(ssize_t, writev, (int fd, const iovec *from, int count), (fd, from, count), -1, ENOSPC, EIO, EINTR)
// Its third failure on the disk is a short write.
ssize_t pwrite(int fd, const void *from, size_t size, off_t at) {
    REAL(pwrite)
    if (shared_control->variant == 2 && fails(Kind::disk, "pwrite", ENOSPC)) {
        return real(fd, from, size / 2, at);
    }
    const bool failed = disk_fails("pwrite", {ENOSPC, EIO});
    if (!failed) {
        note_write(fd, at, size);
    }
    return failed ? -1 : real(fd, from, size, at);
}
ALSO(pread);
ALSO(preadv);
ALSO(pwrite);
int ftruncate(int fd, off_t size) noexcept {
    REAL(ftruncate)
    const bool failed = disk_fails("ftruncate", {ENOSPC, EIO, EINTR});
    struct stat status;
    if (!failed && syscall(SYS_fstat, fd, &status) == 0 && status.st_size > size) {
        note_write(fd, size, static_cast<size_t>(status.st_size - size));
    } else if (!failed) {
        note_write(fd, size, 0);
    }
    return failed ? -1 : real(fd, size);
}
ALSO(ftruncate);
WRAP(int, fallocate, (int fd, int how, off_t at, off_t size), (fd, how, at, size), -1, ENOSPC, EIO, EINTR)
WRAP(int, posix_fallocate, (int fd, off_t at, off_t size), (fd, at, size), errno, ENOSPC, EIO, EINTR)
ALSO(fallocate);
ALSO(posix_fallocate);
WRAP_SYNC(fsync)
WRAP_SYNC(fdatasync)
WRAP(void *, mmap, (void *at, size_t size, int may, int flags, int fd, off_t from) noexcept, (at, size, may, flags, fd, from), MAP_FAILED, ENOMEM, EMFILE)
ALSO(mmap);
WRAP(int, fstat, (int fd, struct stat *to) noexcept, (fd, to), -1, EIO, ENOMEM)
WRAP(int, stat, (const char *path, struct stat *to) noexcept, (path, to), -1, EIO, ENOMEM)
WRAP(int, lstat, (const char *path, struct stat *to) noexcept, (path, to), -1, EIO, ENOMEM)
WRAP(int, fstatat, (int fd, const char *path, struct stat *to, int flags) noexcept, (fd, path, to, flags), -1, EIO, ENOMEM)
ALSO_STAT(fstat, int, struct stat64 *);
ALSO_STAT(stat, const char *, struct stat64 *);
ALSO_STAT(lstat, const char *, struct stat64 *);
ALSO_STAT(fstatat, int, const char *, struct stat64 *, int);
int rename(const char *from, const char *to) noexcept {
    REAL(rename)
    const bool failed = disk_fails("rename", {ENOSPC, EIO});
    if (!failed) {
        note_rename(from, to);
    }
    return failed ? -1 : real(from, to);
}
WRAP(int, renameat, (int from_folder, const char *from, int to_folder, const char *to) noexcept, (from_folder, from, to_folder, to), -1, ENOSPC, EIO)
WRAP(int, fchmod, (int fd, mode_t mode) noexcept, (fd, mode), -1, EIO, ENOMEM)
WRAP(int, fchmodat, (int folder, const char *path, mode_t mode, int flags) noexcept, (folder, path, mode, flags), -1, EIO, ENOMEM)
WRAP(int, fchown, (int fd, uid_t user, gid_t group) noexcept, (fd, user, group), -1, EIO, ENOMEM)
WRAP(int, fsetxattr, (int fd, const char *name, const void *value, size_t size, int flags) noexcept, (fd, name, value, size, flags), -1, ENOSPC, ENOMEM)
WRAP(int, mkdirat, (int folder, const char *path, mode_t mode) noexcept, (folder, path, mode), -1, ENOSPC, EIO)
WRAP_DISK(int, unlink, (const char *path) noexcept, (path), -1, EIO)
WRAP_DISK(int, unlinkat, (int folder, const char *path, int flags) noexcept, (folder, path, flags), -1, EIO)

WRAP(int, socket, (int family, int type, int protocol) noexcept, (family, type, protocol), -1, EMFILE, ENOMEM)
WRAP(int, socketpair, (int family, int type, int protocol, int *ends) noexcept, (family, type, protocol, ends), -1, EMFILE, ENOMEM)
WRAP(int, accept4, (int fd, sockaddr *address, socklen_t *size, int flags), (fd, address, size, flags), -1, EMFILE, ENOMEM, EINTR)
WRAP(int, connect, (int fd, const sockaddr *address, socklen_t size), (fd, address, size), -1, ENOMEM, EAGAIN, EINTR)
WRAP(int, bind, (int fd, const sockaddr *address, socklen_t size) noexcept, (fd, address, size), -1, ENOMEM, EIO)
WRAP(int, listen, (int fd, int length) noexcept, (fd, length), -1, ENOMEM)
WRAP(int, setsockopt, (int fd, int level, int name, const void *value, socklen_t size) noexcept, (fd, level, name, value, size), -1, ENOMEM)
WRAP(int, getsockopt, (int fd, int level, int name, void *value, socklen_t *size) noexcept, (fd, level, name, value, size), -1, ENOMEM)
WRAP(int, epoll_create1, (int flags) noexcept, (flags), -1, EMFILE, ENOMEM)
// Removing needs no memory, so it cannot fail.
int epoll_ctl(int set, int what, int fd, epoll_event *event) noexcept {
    REAL(epoll_ctl)
    const bool failed = what != EPOLL_CTL_DEL && call_fails("epoll_ctl", {ENOMEM, ENOSPC});
    return failed ? -1 : real(set, what, fd, event);
}
WRAP(int, epoll_wait, (int set, epoll_event *events, int count, int ms), (set, events, count, ms), -1, EINTR)
WRAP(int, poll, (pollfd *fds, nfds_t count, int ms), (fds, count, ms), -1, ENOMEM, EINTR)
WRAP(int, ppoll, (pollfd *fds, nfds_t count, const timespec *length, const sigset_t *blocked), (fds, count, length, blocked), -1, ENOMEM, EINTR)
WRAP(int, dup3, (int from, int to, int flags) noexcept, (from, to, flags), -1, EBUSY, EINTR)
WRAP(int, eventfd, (unsigned value, int flags) noexcept, (value, flags), -1, EMFILE, ENOMEM)
WRAP(int, memfd_create, (const char *name, unsigned flags) noexcept, (name, flags), -1, EMFILE, ENOMEM)
WRAP(ssize_t, getrandom, (void *to, size_t size, unsigned flags), (to, size, flags), -1, EINTR)
WRAP(int, inotify_init1, (int flags) noexcept, (flags), -1, EMFILE, ENOMEM)
WRAP(int, inotify_add_watch, (int fd, const char *path, uint32_t mask) noexcept, (fd, path, mask), -1, ENOSPC, ENOMEM)
WRAP(int, sigwaitinfo, (const sigset_t *signals, siginfo_t *info), (signals, info), -1, EINTR)
WRAP(int, pthread_create, (pthread_t *thread, const pthread_attr_t *how, void *(*body)(void *), void *data) noexcept, (thread, how, body, data), EAGAIN, EAGAIN)

} // extern "C"

// All forms, since the sanitizers define all of them.
using Alignment = std::align_val_t;
void *operator new(size_t size) {
    void *block = malloc(size);
    return block ? block : throw std::bad_alloc();
}
void *operator new(size_t size, Alignment alignment) {
    void *block = aligned_alloc(static_cast<size_t>(alignment), size);
    return block ? block : throw std::bad_alloc();
}
void *operator new(size_t size, const std::nothrow_t &) noexcept { return malloc(size); }
void *operator new[](size_t size) { return operator new(size); }
void *operator new[](size_t size, Alignment alignment) { return operator new(size, alignment); }
void *operator new[](size_t size, const std::nothrow_t &) noexcept { return malloc(size); }
void operator delete(void *block) noexcept { free(block); }
void operator delete(void *block, size_t) noexcept { free(block); }
void operator delete(void *block, Alignment) noexcept { free(block); }
void operator delete(void *block, size_t, Alignment) noexcept { free(block); }
void operator delete[](void *block) noexcept { free(block); }
void operator delete[](void *block, size_t) noexcept { free(block); }
void operator delete[](void *block, Alignment) noexcept { free(block); }
void operator delete[](void *block, size_t, Alignment) noexcept { free(block); }
// clang-format on
#pragma GCC visibility pop
