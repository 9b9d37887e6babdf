#include "tests/service/catalogue/database/failing_calls.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

bool is_music(int file) {
    std::error_code error;
    const auto link = std::filesystem::path("/proc/self/fd") / std::to_string(file);
    const std::string path = std::filesystem::read_symlink(link, error).native();
    return path.find("/music/") != std::string::npos;
}

} // namespace

// In place of the libraries' own. They stand in a file of their own, where nothing is compiled into
// its callers.

extern "C" ssize_t pread(int file, void *bytes, size_t size, off_t offset) {
    if (vantro::service::catalogue::music_reads_fail && is_music(file)) {
        errno = EIO;
        return -1;
    }
    return syscall(SYS_pread64, file, bytes, size, offset);
}

void *operator new(size_t size) {
    const bool fails = vantro::service::catalogue::large_blocks_fail && size > 1u << 20;
    void *const block = fails ? nullptr : std::malloc(size);
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void *block) noexcept {
    std::free(block);
}

void operator delete(void *block, size_t) noexcept {
    std::free(block);
}
