// Ordered lists of what is in the catalogue, made once and kept, so that a page from the middle of
// a long one costs no more than one from its beginning.
#ifndef VANTRO_SERVICE_CATALOGUE_QUERY_LIST_CACHE_H
#define VANTRO_SERVICE_CATALOGUE_QUERY_LIST_CACHE_H

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

// A song or a node in a list, by its number in the catalogue's file. Entries sort by that: nodes
// from the highest number down, then songs from the lowest up.
class Entry {
  public:
    static Entry song(int64_t id) { return Entry(id); }
    static Entry node(int64_t id) { return Entry(-id); }

    bool is_song() const { return value_ > 0; }
    int64_t id() const { return is_song() ? value_ : -value_; }

    friend auto operator<=>(const Entry &, const Entry &) = default;

  private:
    explicit Entry(int64_t value) : value_(value) {}

    int64_t value_; // negated for nodes: long lists are kept, and this takes no more than a number
};

struct List {
    // Where an entry stands. These are sorted by entry.
    struct Place {
        Entry entry;
        uint32_t at;
        int32_t duration_ms; // of songs
    };

    std::vector<Entry> entries;
    std::vector<Place> places; // only of lists that others are sorted by

    const Place *find(Entry entry) const;
    // Fills `places`. `durations` is empty or runs beside `entries`.
    void place_entries(const std::vector<int32_t> &durations);
};

// Leaves those of the entries, which are sorted by number, that `order` has too, in its order.
void sort_by(const List &order, std::vector<Entry> &entries);

// Keeps the lists that were used last. Any thread.
class ListCache {
  public:
    // Returns what is kept under `name`, or makes it. Names hold the generation, so what is out of
    // date is never asked for again, and goes when others need the room.
    std::shared_ptr<const List> get(const std::string &name, const std::function<List()> &make)
        EXCLUDES(mutex_);

    // Null where it is not kept.
    std::shared_ptr<const List> find(const std::string &name) EXCLUDES(mutex_);

    void clear() EXCLUDES(mutex_);

  private:
    // A hundred thousand songs in every order that is asked for take half of this.
    static constexpr size_t bytes_max = 24u * 1024 * 1024;

    struct Kept {
        std::string name;
        std::shared_ptr<const List> list;
        size_t bytes;
    };

    Mutex mutex_;                             // not held while a list is made
    std::list<Kept> kept_ GUARDED_BY(mutex_); // used last in front
    std::unordered_map<std::string, std::list<Kept>::iterator> by_name_ GUARDED_BY(mutex_);
    size_t bytes_ GUARDED_BY(mutex_) = 0;
};

} // namespace vantro::service::catalogue

#endif
