// Ordered lists of songs and nodes. They are made once and cached, so that a page from the middle
// of a long list costs no more than one from the beginning.
#ifndef VANTRO_SERVICE_CATALOGUE_QUERY_LIST_CACHE_H
#define VANTRO_SERVICE_CATALOGUE_QUERY_LIST_CACHE_H

#include <atomic>
#include <compare>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "common/locks.h"

namespace vantro::service::catalogue {

// A song or a node in a list, by its number in the catalogue's file. Entries sort by that number:
// nodes from the highest down, then songs from the lowest up.
class Entry {
  public:
    static Entry song(int64_t id) { return Entry(id); }
    static Entry node(int64_t id) { return Entry(-id); }

    bool is_song() const { return value_ > 0; }
    int64_t id() const { return is_song() ? value_ : -value_; }

    friend bool operator==(const Entry &, const Entry &) = default;
    friend std::strong_ordering operator<=>(const Entry &one, const Entry &other) {
        return one.value_ <=> other.value_;
    }

  private:
    explicit Entry(int64_t value) : value_(value) {}

    int64_t value_; // negated for nodes: an entry of a long list takes no more than a number
};

struct List {
    // An entry, and its index in the list.
    struct Place {
        Entry entry;
        uint32_t at;
        int32_t duration_ms; // of songs
    };

    std::vector<Entry> entries;
    std::vector<Place> places; // by entry; only for lists by which others are sorted

    const Place *find(Entry entry) const;
    // Fills `places`. `durations` is empty, or has a duration for each entry.
    void place_entries(const std::vector<int32_t> &durations);
};

// Sorts `entries`, which are sorted by Entry, into the order of `order`. Entries that `order` does
// not have are dropped.
void sort_by(const List &order, std::vector<Entry> &entries);

class WidePrefixes;

// Caches the most recently used lists. Any thread.
class ListCache {
  public:
    // Returns the cached list `name`, or makes it. Names contain the generation of a source, so an
    // outdated list is never requested, and is dropped when other lists need the room.
    std::shared_ptr<const List> get(const std::string &name, const std::function<List()> &make)
        EXCLUDES(mutex_);

    // Null if the list is not cached.
    std::shared_ptr<const List> find(const std::string &name) EXCLUDES(mutex_);

    // The results for few letters in a list, if they are cached under that name; else null. Names
    // are like those of lists. The newest of each list are kept, and of all the most recently used.
    std::shared_ptr<const WidePrefixes> prefixes(const std::string &list, const std::string &name)
        EXCLUDES(mutex_);
    void set_prefixes(const std::string &list, const std::string &name,
                      std::shared_ptr<const WidePrefixes> prefixes) EXCLUDES(mutex_);

    // Called when the catalogue is made again, since its generations then start from the beginning.
    void clear() EXCLUDES(mutex_);
    // The number of calls of clear().
    uint64_t clears() const { return clears_; }

  private:
    // The lists of a hundred thousand songs, in every order, take half of this.
    static constexpr size_t bytes_max = 24u * 1024 * 1024;
    // Includes the lists that they hold. The results for a million songs take two thirds of this.
    static constexpr size_t prefixes_bytes_max = 64u * 1024 * 1024;

    struct Kept {
        std::string name;
        std::shared_ptr<const List> list;
        size_t bytes;
    };

    std::atomic<uint64_t> clears_ = 0;
    Mutex mutex_;                             // not held while a list is made
    std::list<Kept> kept_ GUARDED_BY(mutex_); // the most recently used first
    std::unordered_map<std::string, std::list<Kept>::iterator> by_name_ GUARDED_BY(mutex_);
    size_t bytes_ GUARDED_BY(mutex_) = 0;

    struct KeptPrefixes {
        std::string list;
        std::string name;
        std::shared_ptr<const WidePrefixes> prefixes;
    };
    std::vector<KeptPrefixes> prefixes_ GUARDED_BY(mutex_); // the most recently used last; a few
};

} // namespace vantro::service::catalogue

#endif
