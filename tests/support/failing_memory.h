// Allocation that fails when a test says so. The including program links failing_memory,
// which sends the library's allocations here.
#ifndef VANTRO_TESTS_SUPPORT_FAILING_MEMORY_H
#define VANTRO_TESTS_SUPPORT_FAILING_MEMORY_H

#include <cerrno>
#include <cstddef>

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
char *__real_strdup(const char *text);
}

// Allocations of this thread before the one that fails; below 0 none does.
inline thread_local int allocations_left = -1;

inline bool allocation_fails() {
    if (allocations_left < 0 || allocations_left-- > 0) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

// Used by the linker alone.
extern "C" {
[[gnu::used]] inline void *__wrap_malloc(size_t size) {
    return allocation_fails() ? nullptr : __real_malloc(size);
}
[[gnu::used]] inline void *__wrap_calloc(size_t count, size_t size) {
    return allocation_fails() ? nullptr : __real_calloc(count, size);
}
[[gnu::used]] inline char *__wrap_strdup(const char *text) {
    return allocation_fails() ? nullptr : __real_strdup(text);
}
}

#endif
