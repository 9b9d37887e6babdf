// The growable slot table. It has no lock of its own: the server lock guards every table.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include <vantro/messaging.h>

namespace {

constexpr int32_t slot_step = 8;

int32_t free_slot(const SlotArray &array) {
    void **end = array.slots + array.slot_count;
    return static_cast<int32_t>(std::find(array.slots, end, nullptr) - array.slots);
}

bool grow(SlotArray *array) {
    constexpr size_t most = SIZE_MAX / sizeof(void *);
    if (array->slot_count > INT32_MAX - slot_step || size_t(array->slot_count) > most - slot_step) {
        errno = ENOMEM;
        return false;
    }
    const size_t count = size_t(array->slot_count) + slot_step;
    auto **slots = static_cast<void **>(std::realloc(array->slots, count * sizeof(void *)));
    if (!slots) {
        return false;
    }
    std::fill(slots + array->slot_count, slots + count, nullptr);
    array->slots = slots;
    array->slot_count += slot_step;
    return true;
}

} // namespace

int32_t _array_add(SlotArray *array, int32_t size) {
    if (size < 0) {
        errno = EINVAL;
        return -1;
    }
    const int32_t index = free_slot(*array);
    if (index == array->slot_count && !grow(array)) {
        return -1;
    }
    // If there is no memory for the element, the slot stays free.
    void *element = std::calloc(1, std::max(size, 1));
    if (!element) {
        return -1;
    }
    array->slots[index] = element;
    return index;
}

void *_array_get(const SlotArray *array, int32_t index) {
    return index >= 0 && index < array->slot_count ? array->slots[index] : nullptr;
}

int32_t _array_del(SlotArray *array, int32_t index) {
    void *element = _array_get(array, index);
    if (!element) {
        return -1;
    }
    array->slots[index] = nullptr;
    std::free(element);
    return 0;
}
