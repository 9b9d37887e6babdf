#include "platform/linux/messages/answer_file.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <new>

#include "platform/linux/messages/wire.h"

namespace vantro::platform {

namespace {

constexpr size_t bytes_min = 256 * 1024;
constexpr size_t bytes_step = 64 * 1024;

constexpr int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE;

std::atomic<size_t> bytes_in_use = 0;

} // namespace

std::unique_ptr<AnswerFile> AnswerFile::make(size_t length) {
    // Half as much again as needed now, so that slightly longer answers do not need a new file each
    // time.
    const size_t roomy = (length + length / 2 + bytes_step - 1) / bytes_step * bytes_step;
    const size_t bytes = std::clamp(roomy, bytes_min, bytes_max);
    std::unique_ptr<AnswerFile> file(new (std::nothrow) AnswerFile(bytes));
    if (!file) {
        return nullptr;
    }
    const size_t before = bytes_in_use.fetch_add(bytes, std::memory_order_relaxed);
    return before + bytes <= bytes_of_all && file->prepare() ? std::move(file) : nullptr;
}

AnswerFile::~AnswerFile() {
    bytes_in_use.fetch_sub(bytes_, std::memory_order_relaxed);
}

bool AnswerFile::prepare() {
    file_.reset(::memfd_create("vantro-answers", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    // Allocates all pages: a write to the mapping could not report that there is no memory.
    if (!file_ || ::fallocate(file_.get(), 0, 0, static_cast<off_t>(bytes_)) != 0) {
        return false;
    }
    mapping_ = Mapping(file_.get(), bytes_, PROT_READ | PROT_WRITE);
    return mapping_ && ::madvise(mapping_.data(), bytes_, MADV_DONTFORK) == 0 &&
           ::fcntl(file_.get(), F_ADD_SEALS, seals) == 0;
}

void AnswerFile::write(const struct iovec *parts, int count, size_t length) {
    gather(mapping_.data(), length, parts, count);
}

int check_answer_file(int file, size_t &length) {
    return check_sealed_file(file, seals, length);
}

} // namespace vantro::platform
