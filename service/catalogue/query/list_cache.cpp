#include "service/catalogue/query/list_cache.h"

#include <algorithm>
#include <utility>

#include "service/catalogue/query/wide_prefixes.h"

namespace vantro::service::catalogue {

const List::Place *List::find(Entry entry) const {
    const auto found =
        std::lower_bound(places.begin(), places.end(), entry,
                         [](const Place &place, Entry wanted) { return place.entry < wanted; });
    return found != places.end() && found->entry == entry ? &*found : nullptr;
}

void List::place_entries(const std::vector<int32_t> &durations) {
    places.reserve(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
        places.push_back(
            {entries[i], static_cast<uint32_t>(i), durations.empty() ? 0 : durations[i]});
    }
    std::sort(places.begin(), places.end(),
              [](const Place &a, const Place &b) { return a.entry < b.entry; });
}

void sort_by(const List &order, std::vector<Entry> &entries) {
    if (entries.size() < order.places.size() / 64) {
        std::vector<uint32_t> found;
        for (const Entry entry : entries) {
            if (const List::Place *place = order.find(entry)) {
                found.push_back(place->at);
            }
        }
        std::sort(found.begin(), found.end());
        entries.clear();
        for (const uint32_t at : found) {
            entries.push_back(order.entries[at]);
        }
        return;
    }
    // For many entries, a pass over the whole order is faster than sorting.
    std::vector<char> found(order.entries.size());
    auto place = order.places.begin();
    for (const Entry entry : entries) {
        while (place != order.places.end() && place->entry < entry) {
            ++place;
        }
        if (place != order.places.end() && place->entry == entry) {
            found[place->at] = 1;
        }
    }
    entries.clear();
    for (size_t at = 0; at < found.size(); ++at) {
        if (found[at] != 0) {
            entries.push_back(order.entries[at]);
        }
    }
}

std::shared_ptr<const List> ListCache::find(const std::string &name) {
    const MutexLock guard(mutex_);
    const auto found = by_name_.find(name);
    if (found == by_name_.end()) {
        return nullptr;
    }
    kept_.splice(kept_.begin(), kept_, found->second);
    return found->second->list;
}

std::shared_ptr<const List> ListCache::get(const std::string &name,
                                           const std::function<List()> &make) {
    if (std::shared_ptr<const List> list = find(name)) {
        return list;
    }
    std::shared_ptr<const List> list = std::make_shared<const List>(make());
    const size_t bytes = sizeof(Kept) + 2 * name.size() + list->entries.capacity() * sizeof(Entry) +
                         list->places.capacity() * sizeof(List::Place);
    const MutexLock guard(mutex_);
    if (bytes > bytes_max || by_name_.count(name) != 0) {
        return list; // too long for the cache, or another thread was faster
    }
    while (bytes_ + bytes > bytes_max) {
        bytes_ -= kept_.back().bytes;
        by_name_.erase(kept_.back().name);
        kept_.pop_back();
    }
    kept_.push_front({name, list, bytes});
    by_name_.emplace(name, kept_.begin());
    bytes_ += bytes;
    return list;
}

std::shared_ptr<const WidePrefixes> ListCache::prefixes(const std::string &list,
                                                        const std::string &name) {
    const MutexLock guard(mutex_);
    const auto found =
        std::find_if(prefixes_.begin(), prefixes_.end(), [&](const KeptPrefixes &each) {
            return each.list == list && each.name == name;
        });
    if (found == prefixes_.end()) {
        return nullptr;
    }
    std::rotate(found, found + 1, prefixes_.end());
    return prefixes_.back().prefixes;
}

void ListCache::set_prefixes(const std::string &list, const std::string &name,
                             std::shared_ptr<const WidePrefixes> prefixes) {
    KeptPrefixes made = {list, name, std::move(prefixes)};
    size_t total = made.prefixes->bytes();
    const MutexLock guard(mutex_);
    std::erase_if(prefixes_, [&](const KeptPrefixes &each) { return each.list == list; });
    auto first = prefixes_.end(); // the first one for which there is room
    while (first != prefixes_.begin() &&
           total + (first - 1)->prefixes->bytes() <= prefixes_bytes_max) {
        total += (--first)->prefixes->bytes();
    }
    prefixes_.erase(prefixes_.begin(), first);
    prefixes_.push_back(std::move(made));
}

void ListCache::clear() {
    ++clears_;
    const MutexLock guard(mutex_);
    prefixes_.clear();
    by_name_.clear();
    kept_.clear();
    bytes_ = 0;
}

} // namespace vantro::service::catalogue
