// Vectors with a transport header in front of the caller's parts.
#ifndef VANTRO_TRANSPORT_HEADERED_PARTS_H
#define VANTRO_TRANSPORT_HEADERED_PARTS_H

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <sys/uio.h>

#include <vantro/messaging.h>

#include "transport/wire.h"

namespace vantro::transport {

// Most parts that a caller may give. The header takes one place, and the platform two: one for its
// frame, one for the end of a message that does not fit. The public header states the number.
inline constexpr int parts_max = IOV_MAX - 3;
static_assert(parts_max == 1021);

// Parts of a caller's vector that need no heap allocation.
inline constexpr int stack_parts = 32;

// Bytes of all parts. If the sum does not fit 64 bits, UINT64_MAX, which no message has.
inline uint64_t sum_parts(const iovec *parts, int count) {
    uint64_t total = 0;
    for (int i = 0; i < count; i++) {
        if (parts[i].iov_len > UINT64_MAX - total) {
            return UINT64_MAX;
        }
        total += parts[i].iov_len;
    }
    return total;
}

// The header, then the caller's parts in order. Vectors of the usual length are stored in this
// object, so that an exchange needs no heap allocation; longer ones need one.
class HeaderedParts {
  public:
    HeaderedParts(TransportHeader *header, const iovec *parts, int count) {
        if (count < 0 || count > parts_max) {
            errno = EINVAL;
            return;
        }
        iovec *vector = few_;
        if (count > stack_parts) {
            many_ = static_cast<iovec *>(std::malloc((size_t(count) + 1) * sizeof(iovec)));
            if (!many_) {
                errno = ENOMEM;
                return;
            }
            vector = many_;
        }
        vector[0] = {header, header_bytes};
        if (count > 0) {
            std::memcpy(vector + 1, parts, size_t(count) * sizeof(iovec));
        }
        vector_ = vector;
        count_ = count + 1;
    }

    ~HeaderedParts() { std::free(many_); }

    HeaderedParts(const HeaderedParts &) = delete;
    HeaderedParts &operator=(const HeaderedParts &) = delete;

    // False if the parts were refused; errno has the reason (EINVAL, ENOMEM).
    explicit operator bool() const { return vector_ != nullptr; }

    const iovec *data() const { return vector_; }
    int count() const { return count_; }

  private:
    iovec few_[stack_parts + 1];
    iovec *many_ = nullptr;
    const iovec *vector_ = nullptr;
    int count_ = 0;
};

} // namespace vantro::transport

#endif
