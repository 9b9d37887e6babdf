// The floor: the time of a simple exchange of the same size between two processes that block.
#ifndef VANTRO_BENCH_FLOOR_H
#define VANTRO_BENCH_FLOOR_H

#include <memory>

#include "bench/measure.h"
#include "bench/process.h"

namespace vantro::bench {

// Exchanges with another process over one SOCK_SEQPACKET pair: 44 bytes there and 32 back.
class Floor {
  public:
    Floor();
    ~Floor();
    Floor(const Floor &) = delete;
    Floor &operator=(const Floor &) = delete;

    // A batch of exchanges; borrows this object.
    Batch batch();

  private:
    void exchange();

    int socket_ = -1;
    std::unique_ptr<Child> peer_;
};

// The other side, in a process of its own: answers on a socket until that ends.
int serve_floor(int socket);

} // namespace vantro::bench

#endif
