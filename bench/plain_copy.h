// The time of copying a listing's bytes from one process to another without any protocol.
#ifndef VANTRO_BENCH_PLAIN_COPY_H
#define VANTRO_BENCH_PLAIN_COPY_H

#include <memory>
#include <vector>

#include "bench/measure.h"
#include "bench/process.h"

namespace vantro::bench {

// Send or receive all bytes. @return false if the peer is gone.
bool send_all(int socket, const void *bytes, size_t count);
bool receive_all(int socket, void *bytes, size_t count);

// Exchanges with another process over a SOCK_STREAM pair: 44 bytes there and a given number back.
class PlainCopy {
  public:
    explicit PlainCopy(size_t bytes);
    ~PlainCopy();
    PlainCopy(const PlainCopy &) = delete;
    PlainCopy &operator=(const PlainCopy &) = delete;

    // A batch of exchanges; borrows this object.
    Batch batch();

  private:
    void exchange();

    std::vector<char> bytes_;
    int socket_ = -1;
    std::unique_ptr<Child> peer_;
};

// The other side, in a process of its own: answers on a socket until that ends.
int serve_copy(int socket, size_t bytes);

} // namespace vantro::bench

#endif
