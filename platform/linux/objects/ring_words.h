// Copies into and out of shared memory while the other side may read or write the same bytes.
#ifndef VANTRO_PLATFORM_LINUX_OBJECTS_RING_WORDS_H
#define VANTRO_PLATFORM_LINUX_OBJECTS_RING_WORDS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/linux/objects/ring.h"

namespace vantro::platform {

// As wide as the host's registers, so that each access is one plain instruction.
using RingWord = unsigned long;
static_assert(record_alignment % sizeof(RingWord) == 0);
static_assert(__atomic_always_lock_free(sizeof(RingWord), nullptr));

inline RingWord *ring_word(char *mapping, uint64_t position) {
    return reinterpret_cast<RingWord *>(mapping + ring_data_offset + position % ring_capacity);
}

// Stores bytes at a position that is a multiple of a word; the last word is filled with zeros.
inline void store_words(char *mapping, uint64_t position, const void *from, size_t bytes) {
    const char *next = static_cast<const char *>(from);
    for (; bytes >= sizeof(RingWord); bytes -= sizeof(RingWord)) {
        RingWord word;
        std::memcpy(&word, next, sizeof word);
        __atomic_store_n(ring_word(mapping, position), word, __ATOMIC_RELAXED);
        next += sizeof word;
        position += sizeof word;
    }
    if (bytes > 0) {
        RingWord word = 0;
        std::memcpy(&word, next, bytes);
        __atomic_store_n(ring_word(mapping, position), word, __ATOMIC_RELAXED);
    }
}

inline void load_words(char *mapping, uint64_t position, void *to, size_t bytes) {
    char *next = static_cast<char *>(to);
    for (; bytes >= sizeof(RingWord); bytes -= sizeof(RingWord)) {
        const RingWord word = __atomic_load_n(ring_word(mapping, position), __ATOMIC_RELAXED);
        std::memcpy(next, &word, sizeof word);
        next += sizeof word;
        position += sizeof word;
    }
    if (bytes > 0) {
        const RingWord word = __atomic_load_n(ring_word(mapping, position), __ATOMIC_RELAXED);
        std::memcpy(next, &word, bytes);
    }
}

// The thread sanitizer does not model fences, and GCC warns of that. That does no harm here: every
// access that a fence orders is atomic itself.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wtsan"
#endif
inline void fence_after_reserving() {
    __atomic_thread_fence(__ATOMIC_RELEASE);
}
inline void fence_after_copying() {
    __atomic_thread_fence(__ATOMIC_ACQUIRE);
}
// The publisher commits, then checks for watchers, in a system call; a reader watches, then checks
// for committed text. If one of them did its second step first, both could miss the other.
inline void fence_at_the_bell() {
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

} // namespace vantro::platform

#endif
