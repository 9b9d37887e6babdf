// Owner of a file descriptor.
#ifndef VANTRO_BRIDGES_SOCKETS_DESCRIPTOR_H
#define VANTRO_BRIDGES_SOCKETS_DESCRIPTOR_H

#include <utility>

#include <unistd.h>

namespace vantro::sockets {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        if (this != &other) {
            reset();
            number_ = std::exchange(other.number_, -1);
        }
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    int release() { return std::exchange(number_, -1); }
    void reset() {
        if (number_ >= 0) {
            ::close(std::exchange(number_, -1));
        }
    }

  private:
    int number_ = -1;
};

} // namespace vantro::sockets

#endif
