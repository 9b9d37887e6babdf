#include "platform/linux/messages/lane_words.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/vfs.h>

#include <new>

#include "platform/linux/messages/wire.h"

namespace vantro::platform {

namespace {

constexpr size_t words_bytes = sizeof(LaneWords) * IPC_LANES_MAX;
constexpr int words_seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

std::shared_ptr<ConnectionWords> map(int file) {
    Mapping mapping(file, words_bytes, PROT_READ | PROT_WRITE);
    if (!mapping) {
        return nullptr;
    }
    try {
        return std::make_shared<ConnectionWords>(std::move(mapping));
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

// Whether a file is plain memory: in any other file, touching a page may fail.
bool is_plain_memory(int file) {
    struct statfs status;
    return ::fstatfs(file, &status) == 0 && status.f_type == TMPFS_MAGIC;
}

} // namespace

std::shared_ptr<ConnectionWords> ConnectionWords::make(UniqueFd &file) {
    file.reset(::memfd_create("vantro-words", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!file || ::ftruncate(file.get(), words_bytes) != 0 ||
        ::fcntl(file.get(), F_ADD_SEALS, words_seals) != 0) {
        return nullptr;
    }
    return map(file.get());
}

std::shared_ptr<ConnectionWords> ConnectionWords::adopt(int file) {
    size_t length = 0;
    if (check_sealed_file(file, words_seals, length) != 0 || length < words_bytes ||
        !is_plain_memory(file)) {
        return nullptr;
    }
    return map(file);
}

} // namespace vantro::platform
