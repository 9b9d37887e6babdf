#include "tests/service/catalogue/database/failing_calls.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

bool is_music(int file) {
    std::error_code error;
    const auto link = std::filesystem::path("/proc/self/fd") / std::to_string(file);
    const std::string path = std::filesystem::read_symlink(link, error).native();
    return path.find("/music/") != std::string::npos;
}

void *allocate(size_t size) {
    void *const block = std::malloc(size);
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
}

// The address sanitizer ignores what this thread allocates while the object lives.
struct NoLeakCheck {
#ifdef __SANITIZE_ADDRESS__
    NoLeakCheck() { __lsan_disable(); }
    ~NoLeakCheck() { __lsan_enable(); }
#endif
};

} // namespace

// These replace the libraries' functions. They are in a file of their own, so that they are not
// inlined into their callers. pread is defined by its linker name: the fortified headers of some
// compilers define the other name themselves.

extern "C" ssize_t failing_pread(int file, void *bytes, size_t size, off_t offset) asm("pread64");

extern "C" ssize_t failing_pread(int file, void *bytes, size_t size, off_t offset) {
    if (vantro::service::catalogue::music_reads_fail && is_music(file)) {
        errno = EIO;
        return -1;
    }
    return syscall(SYS_pread64, file, bytes, size, offset);
}

void *operator new(size_t size) {
    if (!vantro::service::catalogue::large_blocks_fail) {
        return allocate(size);
    }
    if (size > 1u << 20) {
        throw std::bad_alloc();
    }
    // TagLib's constructors leak when an exception leaves them. That is not our leak.
    [[maybe_unused]] const NoLeakCheck unchecked;
    return allocate(size);
}

void operator delete(void *block) noexcept {
    std::free(block);
}

void operator delete(void *block, size_t) noexcept {
    std::free(block);
}
