#ifndef VANTRO_PLATFORM_LINUX_BASE_MAPPING_H
#define VANTRO_PLATFORM_LINUX_BASE_MAPPING_H

#include <sys/mman.h>

#include <cstddef>
#include <utility>

namespace vantro::platform {

// Owns a shared mapping of a file.
class Mapping {
  public:
    Mapping() = default;
    Mapping(int file, size_t bytes, int protection)
        : data_(::mmap(nullptr, bytes, protection, MAP_SHARED, file, 0)), bytes_(bytes) {
        if (data_ == MAP_FAILED) {
            data_ = nullptr;
        }
    }
    Mapping(Mapping &&other) noexcept
        : data_(std::exchange(other.data_, nullptr)), bytes_(other.bytes_) {}
    Mapping &operator=(Mapping &&other) noexcept {
        if (this != &other) {
            reset();
            data_ = std::exchange(other.data_, nullptr);
            bytes_ = other.bytes_;
        }
        return *this;
    }
    ~Mapping() { reset(); }

    char *data() const { return static_cast<char *>(data_); }
    explicit operator bool() const { return data_ != nullptr; }
    void reset() {
        if (void *const data = std::exchange(data_, nullptr)) {
            ::munmap(data, bytes_);
        }
    }

  private:
    void *data_ = nullptr;
    size_t bytes_ = 0;
};

} // namespace vantro::platform

#endif
