// Lack of memory in the loop of a bridge.
#ifndef VANTRO_BRIDGES_SOCKETS_MEMORY_H
#define VANTRO_BRIDGES_SOCKETS_MEMORY_H

#include <new>

namespace vantro::sockets {

// Does the work. @return false if memory ran out. Only what needed it is given up: a client, or an
// event.
template <typename Work>
bool has_memory(Work work) {
    try {
        work();
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

} // namespace vantro::sockets

#endif
