// The number of descriptors that this process may open.
#ifndef VANTRO_COMMON_DESCRIPTOR_LIMIT_H
#define VANTRO_COMMON_DESCRIPTOR_LIMIT_H

#include <sys/resource.h>

namespace vantro {

// Raises the limit as far as this process may. For programs that need descriptors for each client.
inline void raise_descriptor_limit() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace vantro

#endif
