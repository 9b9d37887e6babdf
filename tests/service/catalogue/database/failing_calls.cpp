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

// What is allocated meanwhile by this thread is no leak to the address sanitizer.
struct NoLeakCheck {
#ifdef __SANITIZE_ADDRESS__
    NoLeakCheck() { __lsan_disable(); }
    ~NoLeakCheck() { __lsan_enable(); }
#endif
};

} // namespace

// In place of the libraries' own. They stand in a file of their own, if nothing is compiled into
// its callers. pread is defined by its name to the linker: the fortified headers of some compilers
// define the other one themselves.

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
    // TagLib's constructors free nothing when an exception leaves them. That is no leak of ours.
    [[maybe_unused]] const NoLeakCheck unchecked;
    return allocate(size);
}

void operator delete(void *block) noexcept {
    std::free(block);
}

void operator delete(void *block, size_t) noexcept {
    std::free(block);
}
