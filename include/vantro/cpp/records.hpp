/** Owners of the records that queries return, and lists that are fetched page by page. */
#ifndef VANTRO_CPP_RECORDS_HPP
#define VANTRO_CPP_RECORDS_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

#include <vantro/cpp/result.hpp>
#include <vantro/extras.h>

namespace vantro {

/** A string of a record, which may be NULL. */
inline std::string_view text(const char *string) {
    return string ? std::string_view(string) : std::string_view();
}

namespace detail {

inline void free_records(MediaSource *records, int count) {
    vantro_free_media_sources(records, count);
}
inline void free_records(MediaNode *records, int count) {
    vantro_free_media_nodes(records, count);
}
inline void free_records(Metadata *records, int count) {
    vantro_free_metadata(records, count);
}

struct FreeBlock {
    void operator()(void *block) const { std::free(block); }
};
struct FreeTrack {
    void operator()(VantroTrackInfo *track) const { vantro_free_track_info(track); }
};
struct FreeMetadata {
    void operator()(Metadata *metadata) const { vantro_free_metadata(metadata, 1); }
};

// A copy of a text that a range needs as long as it lives. Ids and most terms need no allocation.
class Text {
  public:
    explicit Text(std::string_view text) {
        char *to = short_.data();
        if (text.size() >= short_.size()) {
            long_ = std::make_unique<char[]>(text.size() + 1);
            to = long_.get();
        }
        text.copy(to, text.size());
        to[text.size()] = '\0';
    }

    const char *get() const { return long_ ? long_.get() : short_.data(); }

  private:
    std::array<char, 64> short_{};
    std::unique_ptr<char[]> long_;
};

} // namespace detail

/** Records of one kind, owned. A range of them, and convertible to a span. */
template <typename Record>
class List {
  public:
    List() = default;
    /** Takes a block that a query returned. */
    List(Record *records, int count)
        : records_(records), count_(records && count > 0 ? static_cast<size_t>(count) : 0) {}
    ~List() { release(); }
    List(List &&other) noexcept
        : records_(std::exchange(other.records_, nullptr)),
          count_(std::exchange(other.count_, size_t{0})) {}
    List &operator=(List &&other) noexcept {
        if (this != &other) {
            release();
            records_ = std::exchange(other.records_, nullptr);
            count_ = std::exchange(other.count_, size_t{0});
        }
        return *this;
    }

    const Record *begin() const { return records_; }
    const Record *end() const { return records_ + count_; }
    size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    const Record &operator[](size_t at) const { return records_[at]; }
    std::span<const Record> span() const { return {records_, count_}; }

  private:
    void release() { detail::free_records(records_, static_cast<int>(count_)); }

    Record *records_ = nullptr;
    size_t count_ = 0;
};

/** An entry of a list with what is known of it. Both belong to the list. */
struct DescribedNode {
    const MediaNode *node;
    const Metadata *metadata;
};

/** Nodes, each with its metadata, owned. */
class DescribedList {
  public:
    DescribedList() = default;
    /** Takes the blocks that a query returned. */
    DescribedList(MediaNode *nodes, Metadata *metadata, int count)
        : nodes_(nodes, count), metadata_(metadata, count) {}

    size_t size() const { return nodes_.size(); }
    bool empty() const { return nodes_.empty(); }
    DescribedNode operator[](size_t at) const { return {&nodes_[at], &metadata_[at]}; }

  private:
    List<MediaNode> nodes_;
    List<Metadata> metadata_;
};

/** Names that a query returned, owned. A range of C strings. */
class Names {
  public:
    Names() = default;
    /** Takes the block that a query returned. */
    Names(char **names, int count)
        : names_(names), count_(names && count > 0 ? static_cast<size_t>(count) : 0) {}

    const char *const *begin() const { return names_.get(); }
    const char *const *end() const { return names_.get() + count_; }
    size_t size() const { return count_; }
    const char *operator[](size_t at) const { return names_.get()[at]; }

  private:
    std::unique_ptr<char *[], detail::FreeBlock> names_;
    size_t count_ = 0;
};

/** The current track: `media_node` and `metadata` may be NULL. */
using Track = std::unique_ptr<VantroTrackInfo, detail::FreeTrack>;

/** What is known of a node; NULL where the service has nothing. */
using MetadataPtr = std::unique_ptr<Metadata, detail::FreeMetadata>;

/** A text of the catalogue; NULL where there is none. */
using Value = std::unique_ptr<char, detail::FreeBlock>;

/**
 * A list that is fetched page by page while it is walked. It is walked once; begin() fetches the
 * first page. A node of an earlier page is no more when the next page is fetched. Where a page
 * cannot be fetched the walk ends, and failure() says why:
 *
 *     #include <cstdio>
 *     #include <vantro/vantro.hpp>
 *
 *     void print_names(vantro::Player &player, int32_t ms_id) {
 *         auto nodes = player.browse(ms_id);
 *         for (const MediaNode &node : nodes) {
 *             std::puts(node.name ? node.name : "");
 *         }
 *         nodes.done().or_throw();
 *     }
 *
 * `Fetch` is called with the offset of the page and its length, and returns its list.
 */
template <typename Fetch>
class Pages {
    using Page = std::remove_cvref_t<decltype(*std::declval<Fetch &>()(int32_t{0}, int32_t{0}))>;
    using Entry = decltype(std::declval<const Page &>()[0]);

  public:
    static constexpr int32_t page_length = 100;

    /** @param offset the first entry wanted, counted from 0. */
    Pages(Fetch fetch, int32_t offset) : fetch_(std::move(fetch)), next_(offset) {}

    class Iterator {
      public:
        using value_type = std::remove_cvref_t<Entry>;
        using difference_type = std::ptrdiff_t;

        explicit Iterator(Pages &pages) : pages_(&pages) {}
        Entry operator*() const { return pages_->page_[pages_->at_]; }
        const value_type *operator->() const
            requires std::is_reference_v<Entry>
        {
            return &**this;
        }
        Iterator &operator++() {
            pages_->advance();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const {
            return pages_->at_ == pages_->page_.size();
        }

      private:
        Pages *pages_;
    };

    Iterator begin() {
        if (!begun_) {
            begun_ = true;
            fetch_page();
        }
        return Iterator(*this);
    }
    std::default_sentinel_t end() const { return {}; }

    /** Whether every page that was asked for came. */
    Result<void> done() const { return failure_ ? Result<void>(*failure_) : Result<void>(); }

  private:
    void advance() {
        if (++at_ == page_.size() && page_.size() == static_cast<size_t>(page_length)) {
            fetch_page();
        }
    }
    void fetch_page() {
        at_ = 0;
        page_ = {};
        Result<Page> page = fetch_(next_, page_length);
        if (page) {
            page_ = *std::move(page);
            next_ += static_cast<int32_t>(page_.size());
        } else {
            failure_ = page.failure();
        }
    }

    Fetch fetch_;
    int32_t next_;
    bool begun_ = false;
    Page page_;
    size_t at_ = 0;
    std::optional<Failure> failure_;
};

} // namespace vantro

#endif
