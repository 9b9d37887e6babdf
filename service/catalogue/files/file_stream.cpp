#include "service/catalogue/files/file_stream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace vantro::service::catalogue {

namespace {

constexpr size_t window_bytes = 16 * 1024;

} // namespace

FileStream::FileStream(const MusicRoot &root, const std::string &path, std::string name)
    : name_(std::move(name)), descriptor_(root.open_file(path)) {
    if (descriptor_ < 0 || fstat(descriptor_, &status_) != 0) {
        failure_ = Error(Error::Origin::music, errno);
    } else if (!S_ISREG(status_.st_mode)) {
        failure_ = Error::damage(Error::Origin::music, "is not a regular file");
    } else if (status_.st_size == 0) {
        failure_ = Error::damage(Error::Origin::music, "is empty");
    }
}

FileStream::~FileStream() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

void FileStream::rewind(bool with_name) {
    named_ = with_name;
    at_ = 0;
    left_ = budget_bytes;
}

size_t FileStream::read_at(char *bytes, size_t size, long offset) {
    size_t done = 0;
    while (done < size) {
        const ssize_t count =
            pread(descriptor_, bytes + done, size - done, offset + static_cast<long>(done));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            // To tag readers it looks like the end of the file.
            failure_ = Error(Error::Origin::music, errno);
        }
        if (count <= 0) {
            break; // the file may have become shorter
        }
        done += static_cast<size_t>(count);
    }
    return done;
}

TagLib::ByteVector FileStream::readBlock(unsigned long length_wanted) {
    const long rest = std::min(std::max(length() - at_, 0l), left_);
    const size_t wanted = std::min(length_wanted, static_cast<unsigned long>(rest));
    if (wanted == 0) {
        return {};
    }
    TagLib::ByteVector bytes(static_cast<unsigned>(wanted), '\0');
    size_t got = 0;
    if (wanted > window_bytes / 2) {
        got = read_at(bytes.data(), wanted, at_);
    } else {
        const auto inside = [&] {
            return at_ >= window_at_ && at_ + static_cast<long>(wanted) <=
                                            window_at_ + static_cast<long>(window_.size());
        };
        if (!inside()) {
            window_.resize(window_bytes);
            window_.resize(read_at(window_.data(), window_bytes, at_));
            window_at_ = at_;
        }
        const auto skip = static_cast<size_t>(at_ - window_at_);
        got = std::min(wanted, window_.size() - skip);
        std::memcpy(bytes.data(), window_.data() + skip, got);
    }
    bytes.resize(static_cast<unsigned>(got));
    at_ += static_cast<long>(got);
    left_ -= static_cast<long>(got);
    return bytes;
}

void FileStream::seek(long offset, Position from) {
    const long base = from == Current ? at_ : from == End ? length() : 0;
    // Offsets are sums of numbers in the file, so they can have any value.
    long target = 0;
    if (__builtin_add_overflow(base, offset, &target) || target < 0) {
        target = 0;
    }
    at_ = target;
}

} // namespace vantro::service::catalogue
