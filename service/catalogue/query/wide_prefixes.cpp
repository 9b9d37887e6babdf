#include "service/catalogue/query/wide_prefixes.h"

#include <algorithm>
#include <bit>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace vantro::service::catalogue {

namespace {

constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz0123456789";
constexpr size_t bits_each = 64;

// For fewer results, or a smaller part of all songs, the index is fast enough.
constexpr size_t finds_min = 2000;
constexpr size_t part_min = 64;

// The bound for all cached results of one list.
constexpr size_t bytes_max = size_t{3} << 20;

} // namespace

Rows search_index(Database &database, Searched searched, std::string_view expression) {
    return database.query(
        searched.kind == kind_song
            ? "SELECT rowid FROM song_words WHERE song_words MATCH ?1 ORDER BY rowid"
            : "SELECT rowid FROM node_words WHERE node_words MATCH ?1 ORDER BY rowid DESC",
        searched.columns.empty() ? std::string(expression)
                                 : fmt::format("{} : ({})", searched.columns, expression));
}

WidePrefixes::WidePrefixes(Database &database, Searched searched, std::shared_ptr<const List> all)
    : searched_(searched), all_(std::move(all)) {
    if (all_->entries.size() >= finds_min) {
        keep_all(database);
    }
    if (kept_.empty()) {
        all_.reset();
        return;
    }
    bytes_ +=
        all_->entries.capacity() * sizeof(Entry) + all_->places.capacity() * sizeof(List::Place);
    for (const auto &[prefix, bits] : kept_) {
        bytes_ += sizeof(*kept_.begin()) + bits.size() * sizeof(uint64_t);
    }
}

void WidePrefixes::keep_all(Database &database) {
    for (const char first : letters) {
        keep(database, std::string(1, first));
    }
    for (const char first : letters) {
        const std::string prefix(1, first);
        if (kept_.count(prefix) == 0) {
            continue;
        }
        for (const char second : letters) {
            keep(database, prefix + second);
        }
    }
}

void WidePrefixes::keep(Database &database, const std::string &prefix) {
    const size_t words = all_->entries.size() / bits_each + 1;
    if ((kept_.size() + 1) * words * sizeof(uint64_t) > bytes_max) {
        return;
    }
    Bits bits(words);
    size_t finds = 0;
    auto place = all_->places.begin();
    const auto end = all_->places.end();
    Rows rows = search_index(database, searched_, fmt::format("\"{}\"*", prefix));
    while (rows.next()) {
        const int64_t id = rows.integer(0);
        const Entry found = searched_.kind == kind_song ? Entry::song(id) : Entry::node(id);
        while (place != end && place->entry < found) {
            ++place;
        }
        if (place != end && place->entry == found) {
            bits[place->at / bits_each] |= uint64_t{1} << place->at % bits_each;
            ++finds;
        }
    }
    if (finds < std::max(finds_min, all_->entries.size() / part_min)) {
        return;
    }
    kept_.emplace(prefix, std::move(bits));
}

bool WidePrefixes::take(const std::vector<std::string> &words, Wanted &wanted,
                        std::vector<Entry> &entries) const {
    std::vector<const Bits *> kept;
    for (const std::string &word : words) {
        const auto found = kept_.find(word);
        if (found == kept_.end()) {
            return false;
        }
        kept.push_back(&found->second);
    }
    // A list may have 100,000 results, and a page has a hundred: only these are read.
    for (size_t i = 0; i < kept[0]->size() && wanted.count > 0; ++i) {
        uint64_t left = ~uint64_t{0};
        for (const Bits *bits : kept) {
            left &= (*bits)[i];
        }
        if (const auto finds = static_cast<size_t>(std::popcount(left)); finds <= wanted.skip) {
            wanted.skip -= finds;
            continue;
        }
        for (; left != 0 && wanted.count > 0; left &= left - 1) {
            if (wanted.skip > 0) {
                --wanted.skip;
                continue;
            }
            const auto bit = static_cast<size_t>(std::countr_zero(left));
            entries.push_back(all_->entries[i * bits_each + bit]);
            --wanted.count;
        }
    }
    return true;
}

} // namespace vantro::service::catalogue
