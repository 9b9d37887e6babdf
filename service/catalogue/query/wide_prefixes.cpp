#include "service/catalogue/query/wide_prefixes.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace vantro::service::catalogue {

namespace {

constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz0123456789";
constexpr size_t bits_each = 64;

// Fewer finds, or a smaller part of all songs, come from the index soon enough.
constexpr size_t finds_min = 2000;
constexpr size_t part_min = 64;

// All that is kept of one list takes no more.
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

std::optional<std::vector<Entry>> WidePrefixes::find(const std::vector<std::string> &words) const {
    Bits all;
    for (const std::string &word : words) {
        const auto kept = kept_.find(word);
        if (kept == kept_.end()) {
            return std::nullopt;
        }
        const Bits &bits = kept->second;
        if (all.empty()) {
            all = bits;
        } else {
            std::transform(all.begin(), all.end(), bits.begin(), all.begin(), std::bit_and());
        }
    }
    std::vector<Entry> found;
    for (size_t i = 0; i < all.size(); ++i) {
        for (uint64_t left = all[i]; left != 0; left &= left - 1) {
            const auto bit = static_cast<size_t>(std::countr_zero(left));
            found.push_back(all_->entries[i * bits_each + bit]);
        }
    }
    return found;
}

} // namespace vantro::service::catalogue
