// Dictionaries: entries sorted by key, each key and value in one block.
#include <vantro/platform/dictionary.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

namespace {

struct Free {
    void operator()(char *block) const { std::free(block); }
};

// The key with its NUL, then the value with its NUL.
struct Entry {
    std::unique_ptr<char, Free> block;
    size_t key_length = 0;

    std::string_view key() const { return {block.get(), key_length}; }
    const char *value() const { return block.get() + key_length + 1; }
};

Entry make_entry(std::string_view key, const char *value) {
    const size_t value_size = std::strlen(value) + 1;
    Entry entry;
    entry.block.reset(static_cast<char *>(std::malloc(key.size() + 1 + value_size)));
    if (entry.block) {
        std::memcpy(entry.block.get(), key.data(), key.size());
        entry.block.get()[key.size()] = '\0';
        std::memcpy(entry.block.get() + key.size() + 1, value, value_size);
        entry.key_length = key.size();
    }
    return entry;
}

mosk_dict *fail_with(int error) {
    errno = error;
    return nullptr;
}

} // namespace

struct mosk_dict {
    std::vector<Entry> entries;

    std::vector<Entry>::iterator place_of(std::string_view key) {
        return std::lower_bound(
            entries.begin(), entries.end(), key,
            [](const Entry &entry, std::string_view wanted) { return entry.key() < wanted; });
    }
    bool holds(std::vector<Entry>::iterator place, std::string_view key) const {
        return place != entries.end() && place->key() == key;
    }
};

mosk_dict *mosk_dict_new() {
    auto *dict = new (std::nothrow) mosk_dict;
    return dict ? dict : fail_with(ENOMEM);
}

void mosk_dict_destroy(mosk_dict *dict) {
    delete dict;
}

mosk_dict *mosk_dict_set(mosk_dict *dict, const char *key, const char *value) {
    if (!dict || !key || !value) {
        return fail_with(EINVAL);
    }
    Entry entry = make_entry(key, value);
    if (!entry.block) {
        return fail_with(ENOMEM);
    }
    const auto place = dict->place_of(entry.key());
    if (dict->holds(place, entry.key())) {
        std::swap(*place, entry);
        return dict;
    }
    try {
        dict->entries.insert(place, std::move(entry));
    } catch (const std::bad_alloc &) {
        return fail_with(ENOMEM);
    }
    return dict;
}

mosk_dict *mosk_dict_key_delete(mosk_dict *dict, const char *key) {
    if (!dict || !key) {
        return fail_with(EINVAL);
    }
    if (const auto place = dict->place_of(key); dict->holds(place, key)) {
        dict->entries.erase(place);
    }
    return dict;
}

const char *mosk_dict_find_value(const mosk_dict *dict, const char *key) {
    if (!dict || !key) {
        return nullptr;
    }
    auto *const found_in = const_cast<mosk_dict *>(dict);
    const auto place = found_in->place_of(key);
    return found_in->holds(place, key) ? place->value() : nullptr;
}

size_t mosk_dict_size(const mosk_dict *dict) {
    return dict ? dict->entries.size() : 0;
}

int mosk_dict_entry(const mosk_dict *dict, size_t index, const char **key, const char **value) {
    if (index >= mosk_dict_size(dict)) {
        errno = ENOENT;
        return -1;
    }
    const Entry &entry = dict->entries[index];
    if (key) {
        *key = entry.block.get();
    }
    if (value) {
        *value = entry.value();
    }
    return 0;
}
