#ifndef VANTRO_PLATFORM_LINUX_BASE_UNIQUE_FD_H
#define VANTRO_PLATFORM_LINUX_BASE_UNIQUE_FD_H

#include <unistd.h>

#include <utility>

namespace vantro::platform {

// Closes a descriptor. Does not repeat the call after EINTR: the number is free by then.
inline void close_descriptor(int fd) {
    if (fd >= 0) {
        ::close(fd);
    }
}

// Owns a descriptor, which `Close` closes.
template <void (*Close)(int)>
class OwnedFd {
  public:
    OwnedFd() = default;
    explicit OwnedFd(int fd) : fd_(fd) {}
    OwnedFd(OwnedFd &&other) noexcept : fd_(other.release()) {}
    OwnedFd &operator=(OwnedFd &&other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    ~OwnedFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) { Close(std::exchange(fd_, fd)); }

  private:
    int fd_ = -1;
};

using UniqueFd = OwnedFd<close_descriptor>;

} // namespace vantro::platform

#endif
