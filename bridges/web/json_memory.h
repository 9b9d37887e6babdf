// RapidJSON with an allocator that throws: RapidJSON itself uses a block without checking whether
// there was memory for it.
#ifndef VANTRO_BRIDGES_WEB_JSON_MEMORY_H
#define VANTRO_BRIDGES_WEB_JSON_MEMORY_H

#include <cstddef>
#include <cstdlib>
#include <new>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>

namespace vantro::web {

// The names and signatures are RapidJSON's.
class ThrowingAllocator {
  public:
    static constexpr bool kNeedFree = true;

    // @throws std::bad_alloc.
    void *Malloc(size_t size) { return size == 0 ? nullptr : checked(std::malloc(size)); }
    void *Realloc(void *block, size_t, size_t size) {
        if (size == 0) {
            std::free(block);
            return nullptr;
        }
        return checked(std::realloc(block, size));
    }
    static void Free(void *block) { std::free(block); }

  private:
    static void *checked(void *block) { return block ? block : throw std::bad_alloc(); }
};

using JsonBuffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, ThrowingAllocator>;
using JsonDocument =
    rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::MemoryPoolAllocator<ThrowingAllocator>,
                               ThrowingAllocator>;
using JsonValue = JsonDocument::ValueType;

} // namespace vantro::web

#endif
