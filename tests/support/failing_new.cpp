#include "tests/support/failing_new.h"

#include <cstdlib>
#include <new>

thread_local int vantro::test::news_left = -1;

// Not inlined, else the compiler warns of free() for a block of new.
[[gnu::noinline]] void *operator new(size_t size) {
    void *const memory = vantro::test::news_left >= 0 && vantro::test::news_left-- == 0
                             ? nullptr
                             : std::malloc(size);
    return memory ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void *memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, size_t) noexcept {
    std::free(memory);
}
